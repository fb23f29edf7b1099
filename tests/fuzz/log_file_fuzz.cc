// Reader and codec find in a log of any bytes what the plain reading finds, and what the codec
// writes it reads back.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "privatelog/log_line.h"
#include "privatelog/log_reader.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// ---- The plain reading: cut at every colon, then counted. Written from privatelog/FORMAT.md
// alone; shares nothing with the codec but the value types.

using Fields = std::vector<std::string>;

Fields cut(const std::string& line) {
  Fields fields(1);
  for (const char c : line) {
    if (c == ':')
      fields.emplace_back();
    else
      fields.back() += c;
  }
  return fields;
}

uint64_t wide(const std::string& field) {
  return static_cast<uint64_t>(strtol(field.c_str(), nullptr, 10));
}

uint32_t id(const std::string& field) {
  return static_cast<uint32_t>(wide(field));
}

struct Line {
  LineType type = LineType::Ignored;
  DevInode id = {};  // these of types 2 to 5; zeroed otherwise
  OwnerIds oldIds = {};
  OwnerIds newIds = {};
  std::string path = {};
  bool surplus = false;
  bool operator==(const Line&) const = default;
};

LineType typeOf(char first, size_t fields) {
  constexpr std::pair<char, LineType> kByFirst[] = {{'#', LineType::Ignored},
                                                    {'!', LineType::Date},
                                                    {'=', LineType::PasswdUpdate},
                                                    {'@', LineType::GroupUpdate}};
  for (const auto& [character, type] : kByFirst) {
    if (first == character)
      return type;
  }
  if (first == '+')
    return fields >= 3 ? LineType::Link : LineType::Ignored;
  if (fields <= 6)
    return fields == 6 ? LineType::IncompleteChange : LineType::Ignored;
  return first == '>' ? LineType::FollowedChange : LineType::Change;
}

bool isOfEntry(LineType type) {
  return type >= LineType::Link && type <= LineType::IncompleteChange;
}

Line parse(const std::string& text) {
  const Fields fields = cut(text);
  Line line = {.type = typeOf(text.empty() ? '\0' : text[0], fields.size())};
  if (!isOfEntry(line.type))
    return line;
  const bool isMarked = text[0] == '+' || text[0] == '>';
  line.path = fields[0].substr(isMarked ? 1 : 0);
  line.id = {wide(fields[1]), wide(fields[2])};
  if (line.type != LineType::Link)
    line.oldIds = {id(fields[3]), id(fields[4])};
  if (line.type == LineType::Change || line.type == LineType::FollowedChange) {
    line.newIds = {id(fields[5]), id(fields[6])};
    line.surplus = fields.size() > 7;
  }
  return line;
}

// The lines that count: before the first NUL, each with its line feed.
std::vector<std::string> linesOf(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream content(log.substr(0, log.find('\0')));
  for (std::string line; std::getline(content, line) && !content.eof();)
    lines.push_back(line);
  return lines;
}

// ---- The codec

Line parseByCodec(const std::string& text) {
  PrivateLogRecord read;
  const LineType type = parseLogLine(text, read);
  if (!isOfEntry(type))
    return {.type = type};
  return {type, read.id, read.oldIds, read.newIds, std::string(read.path), read.hasSurplusFields};
}

void checkAccountLines(const std::string& text) {
  const Fields fields = cut(text);
  const auto user = parsePasswdUpdateLine(text);
  require(user.has_value() == (text.starts_with('=') && fields.size() >= 5), "a user's line");
  if (user) {
    require("=" + std::string(user->name) == fields[0], "a user's name");
    require(user->oldIds == OwnerIds{id(fields[1]), id(fields[2])}, "old");
    require(user->newIds == OwnerIds{id(fields[3]), id(fields[4])}, "new");
  }
  const auto group = parseGroupUpdateLine(text);
  require(group.has_value() == (text.starts_with('@') && fields.size() >= 3), "a group's line");
  if (group) {
    require("@" + std::string(group->name) == fields[0], "a group's name");
    require(group->oldGid == id(fields[1]), "old");
    require(group->newGid == id(fields[2]), "new");
  }
}

void checkWrittenAgain(Line line) {
  if (!line.path.starts_with('/') || std::max(line.id.device, line.id.inode) > LONG_MAX)
    return;
  std::string again;
  if (line.type == LineType::Link) {
    appendLinkLine(again, line.id, line.path);
  } else {
    appendChangeStart(again, line.id, line.oldIds, line.path,
                      line.type == LineType::FollowedChange);
    appendChangeEnd(again, line.newIds);
  }
  again.pop_back();
  line.surplus = false;
  require(parseByCodec(again) == line, "what is written again reads the same");
}

// ---- The reader

constexpr size_t kPiece = size_t{256} << 10;  // that it takes at a time

// Behind a line so long that the end of a piece falls into the middle of an input with "~".
std::string logOf(const std::string& text) {
  if (!text.starts_with('~'))
    return text;
  return std::string(kPiece - 1 - std::min(text.size() / 2, kPiece / 2), 'd') + '\n' + text;
}

}  // namespace

void tryInput(const std::string& text) {
  const std::string log = logOf(text);
  const InputFile file(log);
  LogReader reader;
  require(reader.open(file.path().c_str()), "the log opens");
  for (const std::string& line : linesOf(log)) {
    const auto read = reader.next();
    require(read && read->text == line, "the same lines");
    require(log.compare(read->offset, line.size() + 1, line + "\n") == 0, "where they stand");
    const Line plain = parse(line);
    require(parseByCodec(line) == plain, "both readings agree");
    checkAccountLines(line);
    if (isOfEntry(plain.type) && plain.type != LineType::IncompleteChange)
      checkWrittenAgain(plain);
  }
  require(!reader.next() && reader.error() == 0, "no line more");
  const size_t end = std::min(log.find('\0'), log.size());
  require(reader.contentEnd() == end, "the first NUL ends the content");
  require(reader.tail().text == log.substr(reader.tail().offset, end - reader.tail().offset) &&
              reader.tail().text.find('\n') == std::string::npos,
          "the tail is what is left");
}
