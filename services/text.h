// Small operations on text: printf into a string of the right size, lower case, UTF-8, base64.
// Pure.
#pragma once

#include <cstdarg>
#include <optional>
#include <string>
#include <string_view>

// The formatted text; the bare format when it cannot be formatted. Consumes `arguments`.
[[gnu::format(printf, 1, 0)]] std::string formatText(const char* format, va_list arguments);

// A lower-cased copy, ASCII letters alone.
std::string lower(const std::string& text);

// The length of the UTF-8 sequence at the start of `text`, which is not empty; 0 when it is none.
// Overlong forms, surrogates and code points beyond U+10FFFF are none.
size_t utf8SequenceLength(std::string_view text);

// In double quotes, on one line, in printable ASCII, and cut off where it is very long: for names
// that somebody else has chosen.
std::string inQuotes(std::string_view name);

// Whether all of `bytes` is made of such sequences.
bool isUtf8(std::string_view bytes);

// With the usual alphabet, padded.
std::string base64(std::string_view bytes);

// The bytes again. Nothing for a text that base64() would not have written.
std::optional<std::string> bytesOfBase64(std::string_view text);
