// Small operations on text: printf into a string of the right size, lower case, UTF-8, base64.
// Pure.
#pragma once

#include <cstdarg>
#include <optional>
#include <string>
#include <string_view>

// The formatted text, or the bare format when it cannot be formatted. Consumes `arguments`.
[[gnu::format(printf, 1, 0)]] std::string formatText(const char* format, va_list arguments);

// A copy with ASCII letters in lower case.
std::string lower(const std::string& text);

// The length of the UTF-8 sequence at the start of `text`, which must not be empty; 0 when there is
// no valid one. Overlong forms, surrogates and code points beyond U+10FFFF are not valid.
size_t utf8SequenceLength(std::string_view text);

// `name` in double quotes, with everything but printable ASCII escaped, and cut after 256 bytes.
// For log lines with names that somebody else has chosen.
std::string inQuotes(std::string_view name);

// Whether `bytes` are valid UTF-8 from begin to end.
bool isUtf8(std::string_view bytes);

// `bytes` in base64, with the usual alphabet and padding.
std::string base64(std::string_view bytes);

// The bytes that base64() made `text` of. Nothing for a text that base64() cannot have made.
std::optional<std::string> bytesOfBase64(std::string_view text);
