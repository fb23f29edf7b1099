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
  // The fast way for nearly every id: nine digits always fit. It matters because each changed
  // account makes a rewrite read every line of the file.
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
