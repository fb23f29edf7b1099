#include "services/text.h"

#include <cstdio>

std::string formatText(const char* format, va_list arguments) {
  va_list measured;
  va_copy(measured, arguments);
  const int length = vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0)
    return format;
  std::string text(static_cast<size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

std::string lower(const std::string& text) {
  std::string result = text;
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}
