#include "privatelog/log_line.h"

#include <array>
#include <limits>

namespace {

constexpr std::string_view kHeaderPrefix = "domain:";

// Cuts a line at its colons, from left to right. atEnd() is true once a field reached the end of
// the line, or was asked for behind it. So "a:" has two fields: "a" does not reach the end, and the
// second, empty one does.
class FieldCutter {
 public:
  explicit FieldCutter(std::string_view line) : rest(line) {}

  std::string_view next() {
    const size_t colon = rest.find(':');
    const std::string_view field = rest.substr(0, colon);
    ended = colon == std::string_view::npos;
    rest.remove_prefix(ended ? rest.size() : colon + 1);
    return field;
  }

  long nextNumber() { return parseLogNumber(next()); }

  // Device and inode numbers. Required: a number above 2^63-1 is written in full and read back as
  // 2^63-1, as other programs read existing logs; the entry of that number is not recognised again.
  uint64_t nextWide() { return static_cast<uint64_t>(nextNumber()); }

  // An id is the low 32 bits of what was read.
  uint32_t nextId() { return static_cast<uint32_t>(nextNumber()); }

  bool atEnd() const { return ended; }

 private:
  std::string_view rest;
  bool ended = false;
};

constexpr bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr std::array<char, 200> twoDigits() {
  std::array<char, 200> all = {};
  for (size_t number = 0; number < 100; ++number) {
    all[2 * number] = static_cast<char>('0' + number / 10);
    all[2 * number + 1] = static_cast<char>('0' + number % 10);
  }
  return all;
}

// Writes the digits of `number` in front of `end`, and returns where they begin.
template <typename Unsigned>
char* digitsBefore(char* end, Unsigned number) {
  static constexpr std::array<char, 200> kPairs = twoDigits();
  const auto putTwo = [&end](size_t pair) {
    *--end = kPairs[2 * pair + 1];
    *--end = kPairs[2 * pair];
  };
  for (; number >= 100; number /= 100)
    putTwo(number % 100);
  if (number >= 10)
    putTwo(number);
  else
    *--end = static_cast<char>('0' + number);
  return end;
}

template <typename First, typename... Rest>
char* fieldsBefore(char* end, First first, Rest... rest) {
  if constexpr (sizeof...(rest) > 0)
    end = fieldsBefore(end, rest...);
  end = digitsBefore(end, first);
  *--end = ':';
  return end;
}

// Appends numbers, each behind a colon. The text is built from its end, so that the length of a
// number need not be known beforehand. This is worth while: each converted entry has six numbers.
template <typename... Unsigned>
void appendFields(std::string& out, Unsigned... numbers) {
  constexpr size_t kMostDigits = std::numeric_limits<uint64_t>::digits10 + 1;
  char text[sizeof...(numbers) * (1 + kMostDigits)];
  char* const end = text + sizeof text;
  out.append(fieldsBefore(end, numbers...), end);
}

// Parses all kinds of line but the four that the first character tells.
LineType parseFields(std::string_view line, PrivateLogRecord& record) {
  FieldCutter fields(line);
  std::string_view name = fields.next();
  if (fields.atEnd())
    return LineType::Ignored;
  record.id.device = fields.nextWide();
  if (fields.atEnd())
    return LineType::Ignored;
  record.id.inode = fields.nextWide();

  const char kind = name.empty() ? '\0' : name.front();
  const bool followed = kind == '>';
  if (followed || kind == '+')
    name.remove_prefix(1);
  record.path = name;
  if (kind == '+')
    return LineType::Link;
  if (fields.atEnd())
    return LineType::Ignored;

  record.oldIds.uid = fields.nextId();
  if (fields.atEnd())
    return LineType::Ignored;
  record.oldIds.gid = fields.nextId();
  if (fields.atEnd())
    return LineType::Ignored;  // a failed change: nothing was changed
  const uint32_t newUid = fields.nextId();
  if (fields.atEnd())
    return LineType::IncompleteChange;
  record.newIds = {newUid, fields.nextId()};
  record.hasSurplusFields = !fields.atEnd();
  return followed ? LineType::FollowedChange : LineType::Change;
}

}  // namespace

LineType parseLogLine(std::string_view line, PrivateLogRecord& record) {
  record = {};
  switch (line.empty() ? '\0' : line.front()) {
    case kUndoneMark:
      return LineType::Ignored;
    case '!':
      return LineType::Date;
    case '=':
      return LineType::PasswdUpdate;
    case '@':
      return LineType::GroupUpdate;
    default:
      return parseFields(line, record);
  }
}

std::optional<PasswdUpdate> parsePasswdUpdateLine(std::string_view line) {
  if (!line.starts_with('='))
    return std::nullopt;
  FieldCutter fields(line.substr(1));
  PasswdUpdate update;
  update.name = fields.next();
  update.oldIds.uid = fields.nextId();
  update.oldIds.gid = fields.nextId();
  update.newIds.uid = fields.nextId();
  if (fields.atEnd())
    return std::nullopt;
  update.newIds.gid = fields.nextId();
  return update;
}

std::optional<GroupUpdate> parseGroupUpdateLine(std::string_view line) {
  if (!line.starts_with('@'))
    return std::nullopt;
  FieldCutter fields(line.substr(1));
  GroupUpdate update;
  update.name = fields.next();
  update.oldGid = fields.nextId();
  if (fields.atEnd())
    return std::nullopt;
  update.newGid = fields.nextId();
  return update;
}

std::optional<std::string_view> parseHeaderLine(std::string_view line) {
  if (!line.starts_with(kHeaderPrefix))
    return std::nullopt;
  return line.substr(kHeaderPrefix.size());
}

long parseLogNumber(std::string_view field) {
  size_t i = 0;
  while (i < field.size() && isSpace(field[i]))
    ++i;
  const bool negative = i < field.size() && field[i] == '-';
  if (i < field.size() && (field[i] == '-' || field[i] == '+'))
    ++i;
  // Sums up negative numbers, because a long has one more of them.
  long sum = 0;
  for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i) {
    const long digit = field[i] - '0';
    if (__builtin_mul_overflow(sum, 10L, &sum) || __builtin_sub_overflow(sum, digit, &sum))
      return negative ? std::numeric_limits<long>::min() : std::numeric_limits<long>::max();
  }
  if (negative)
    return sum;
  return sum == std::numeric_limits<long>::min() ? std::numeric_limits<long>::max() : -sum;
}

void appendHeaderLine(std::string& out, std::string_view domain) {
  out += kHeaderPrefix;
  out += domain;
  out += '\n';
}

void appendDateLine(std::string& out, std::string_view dateText) {
  out += '!';
  out += dateText;
  out += '\n';
}

void appendChangeStart(
    std::string& out, DevInode id, OwnerIds oldIds, std::string_view path, bool followed) {
  if (followed)
    out += '>';
  out += path;
  appendFields(out, id.device, id.inode, oldIds.uid, oldIds.gid);
}

void appendChangeEnd(std::string& out, OwnerIds newIds) {
  appendFields(out, newIds.uid, newIds.gid);
  out += '\n';
}

void appendLinkLine(std::string& out, DevInode id, std::string_view path) {
  out += '+';
  out += path;
  appendFields(out, id.device, id.inode);
  out += '\n';
}

void appendPasswdUpdateLine(std::string& out,
                            std::string_view name,
                            OwnerIds oldIds,
                            OwnerIds newIds) {
  out += '=';
  out += name;
  appendFields(out, oldIds.uid, oldIds.gid, newIds.uid, newIds.gid);
  out += '\n';
}

void appendGroupUpdateLine(std::string& out,
                           std::string_view name,
                           uint32_t oldGid,
                           uint32_t newGid) {
  out += '@';
  out += name;
  appendFields(out, oldGid, newGid);
  out += '\n';
}
