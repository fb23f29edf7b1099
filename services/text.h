// Small operations on text: printf into a string of the right size, and lower case.
#pragma once

#include <cstdarg>
#include <string>

// The formatted text; the bare format when it cannot be formatted. Consumes `arguments`.
[[gnu::format(printf, 1, 0)]] std::string formatText(const char* format, va_list arguments);

// A lower-cased copy, ASCII letters alone.
std::string lower(const std::string& text);
