#include "services/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

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

size_t utf8SequenceLength(std::string_view text) {
  const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80)
    return 1;
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
    return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80)
      return 0;
  }
  const unsigned second = byte(1);
  const bool outside = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return outside ? 0 : length;
}

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t length = utf8SequenceLength(bytes);
    if (length == 0)
      return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string base64(std::string_view bytes) {
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const std::string_view part = bytes.substr(at, 3);
    uint32_t word = 0;
    for (size_t i = 0; i < 3; ++i)
      word = word << 8 | (i < part.size() ? static_cast<unsigned char>(part[i]) : 0);
    for (size_t i = 0; i < 4; ++i)
      text += i <= part.size() ? kDigits[word >> (18 - 6 * i) & 63] : '=';
  }
  return text;
}

std::string inQuotes(std::string_view name) {
  constexpr size_t kMaxBytes = 256;
  std::string text = "\"";
  for (const char c : name.substr(0, kMaxBytes)) {
    if (c == '"' || c == '\\')
      text += '\\';
    if (c >= 0x20 && c < 0x7f) {
      text += c;
      continue;
    }
    char escaped[5];
    snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
    text += escaped;
  }
  return text + (name.size() > kMaxBytes ? "...\"" : "\"");
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
  std::string bytes;
  for (size_t at = 0; at < text.size(); at += 4) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
      const size_t digit = at + i < text.size() ? kDigits.find(text[at + i]) : 0;
      word = word << 6 | (digit == kDigits.npos ? 0 : static_cast<uint32_t>(digit));
    }
    for (int shift = 16; shift >= 0; shift -= 8)
      bytes += static_cast<char>(word >> shift & 0xFF);
  }
  const size_t padding = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
  bytes.resize(bytes.size() - std::min(bytes.size(), padding));
  // One comparison checks it all: length, alphabet, padding, and bits that belong to no byte.
  return base64(bytes) == text ? std::optional(bytes) : std::nullopt;
}
