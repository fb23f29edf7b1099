// The log's lines once more, read the plain way: cut at every colon, then counted.
//
// Written from privatelog/FORMAT.md alone; shares nothing with the codec but the value types.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "privatelog/log_line.h"

namespace log_model {

using Fields = std::vector<std::string>;

inline Fields cut(const std::string& line) {
  Fields fields(1);
  for (const char c : line) {
    if (c == ':')
      fields.emplace_back();
    else
      fields.back() += c;
  }
  return fields;
}

inline uint64_t wide(const std::string& field) {
  return static_cast<uint64_t>(strtol(field.c_str(), nullptr, 10));
}

inline uint32_t id(const std::string& field) {
  return static_cast<uint32_t>(wide(field));
}

struct Line {
  LineType type = LineType::Ignored;
  PrivateLogRecord record;  // of types 2 to 5; zeroed otherwise
  bool surplus = false;
  bool operator==(const Line& other) const {
    return type == other.type && record.id == other.record.id && surplus == other.surplus &&
           record.oldIds == other.record.oldIds && record.newIds == other.record.newIds &&
           record.path == other.record.path;
  }
};

inline LineType typeOf(char first, size_t fields) {
  switch (first) {
    case '#':
      return LineType::Ignored;
    case '!':
      return LineType::Date;
    case '=':
      return LineType::PasswdUpdate;
    case '@':
      return LineType::GroupUpdate;
    case '+':
      return fields >= 3 ? LineType::Link : LineType::Ignored;
    default:
      break;
  }
  if (fields < 6)
    return LineType::Ignored;
  if (fields == 6)
    return LineType::IncompleteChange;
  return first == '>' ? LineType::FollowedChange : LineType::Change;
}

inline Line parse(const std::string& text) {
  const Fields fields = cut(text);
  Line line;
  line.type = typeOf(text.empty() ? '\0' : text[0], fields.size());
  if (line.type < LineType::Link || line.type > LineType::IncompleteChange)
    return line;
  const bool isMarked = text[0] == '+' || text[0] == '>';
  line.record.path = fields[0].substr(isMarked ? 1 : 0);
  line.record.id = {wide(fields[1]), wide(fields[2])};
  if (line.type == LineType::Link)
    return line;
  line.record.oldIds = {id(fields[3]), id(fields[4])};
  if (line.type == LineType::IncompleteChange)
    return line;
  line.record.newIds = {id(fields[5]), id(fields[6])};
  line.surplus = fields.size() > 7;
  return line;
}

// The lines that count: before the first NUL, each with its line feed.
inline std::vector<std::string> linesOf(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream content(log.substr(0, log.find('\0')));
  for (std::string line; std::getline(content, line) && !content.eof();)
    lines.push_back(line);
  return lines;
}

}  // namespace log_model
