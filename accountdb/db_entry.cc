#include "accountdb/db_entry.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace orvs {

bool DBEntry::takeMarker() {
  if (name.empty() || (name.front() != '+' && name.front() != '-'))
    return false;
  name.clear();
  return true;
}

bool FieldReader::next(std::string_view& field) {
  if (ended)
    return false;
  const std::size_t end = text.find(delimiter, position);
  if (end == std::string_view::npos) {
    field = text.substr(position);
    ended = true;
  } else {
    field = text.substr(position, end - position);
    position = end + 1;
  }
  return true;
}

uint32_t parseUnsignedField(std::string_view text) {
  uint32_t value = 0;
  // Nine digits always fit, and nearly every id is read here: a rewrite for each changed account
  // reads the whole file, so this is worth its three lines.
  const bool plain =
      !text.empty() && text.size() <= 9 &&
      std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (plain) {
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
  }
  std::istringstream stream{std::string(text)};
  stream >> value;
  return value;
}

}  // namespace orvs
