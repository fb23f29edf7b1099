#include "services/format_text.h"

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
