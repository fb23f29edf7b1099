#include "survey/machine/id_mention.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr const char* kBlanks = " \t\r\v\f";
constexpr const char* kDigits = "0123456789";

}  // namespace

std::optional<uint32_t> parseId(std::string_view digits) {
  if (digits.empty() || digits.find_first_not_of(kDigits) != digits.npos)
    return std::nullopt;
  uint32_t id = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  if (result.ec != std::errc())
    return std::nullopt;
  return id;
}

std::optional<uint32_t> leadingId(std::string_view text) {
  return parseId(text.substr(0, text.find_first_not_of(kDigits)));
}

std::vector<TextLine> linesOfText(std::string_view text, bool joined) {
  std::vector<TextLine> lines;
  bool goesOn = false;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const bool ends = !joined || !line.ends_with('\\');
    if (!ends)
      line.remove_suffix(1);
    if (goesOn)
      lines.back().text += line;
    else
      lines.push_back({number, std::string(line)});
    goesOn = !ends;
  }
  return lines;
}

std::string_view withoutBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::vector<std::string_view> wordsOfText(std::string_view text) {
  std::vector<std::string_view> words;
  for (text = withoutBlanks(text); !text.empty(); text = withoutBlanks(text)) {
    const size_t end = std::min(text.find_first_of(kBlanks), text.size());
    words.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return words;
}
