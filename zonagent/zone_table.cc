#include "zonagent/zone_table.h"

#include <charconv>
#include <vector>

namespace zonagent {
namespace {

namespace wire = orvs::wire;

// What is wrong with a line; the reader adds file and number.
struct BadLine {
  std::string why;
};

// Calls `take` for each line that says something.
template <class Take>
void eachLine(std::string_view text, const std::string& file, const Take& take) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const bool isMarked = text.starts_with(kByteOrderMark);
  size_t number = 0;
  while (!text.empty()) {
    ++number;
    try {
      if (isMarked)
        throw BadLine{"it begins with a byte order mark"};
      const size_t end = text.find('\n');
      if (end == std::string_view::npos)
        throw BadLine{"the last line has no line end; the file may be cut short"};
      const std::string_view line = text.substr(0, end);
      text.remove_prefix(end + 1);
      if (!line.empty() && line[0] != '#')
        take(line);
    } catch (const BadLine& bad) {
      throw AgentError(file + ":" + std::to_string(number) + ": " + bad.why);
    }
  }
}

std::vector<std::string_view> fieldsOf(std::string_view line, size_t count) {
  std::vector<std::string_view> fields;
  for (;;) {
    const size_t colon = line.find(':');
    fields.push_back(line.substr(0, colon));
    if (colon == std::string_view::npos)
      break;
    line.remove_prefix(colon + 1);
  }
  if (fields.size() != count)
    throw BadLine{"it has " + std::to_string(fields.size()) + " fields instead of " +
                  std::to_string(count)};
  return fields;
}

std::string nameOf(std::string_view field) {
  if (wire::nameForm(field) != wire::NameForm::Good)
    throw BadLine{"the name is empty, is not UTF-8 or has a control character"};
  if (field[0] == '+' || field[0] == '-')
    throw BadLine{"compatibility entries have no place in a zone"};
  return std::string(field);
}

uint32_t idOf(std::string_view field, const char* what) {
  uint32_t id = 0;
  const char* end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, id);
  if (error != std::errc() || stop != end || id > wire::kMaxId)
    throw BadLine{std::string(what) + " is not a number from 0 to 4294967294"};
  return id;
}

}  // namespace

void ZoneTable::add(Index& index, const wire::Record& record) {
  const auto [known, isNew] = index.byName.emplace(record.name, record);
  if (!isNew && (known->second.id != record.id || known->second.gid != record.gid))
    throw BadLine{"\"" + record.name + "\" is listed twice with different ids"};
  index.byId.emplace(record.id.value(), record);
}

void ZoneTable::readUsers(std::string_view text, const std::string& file) {
  eachLine(text, file, [this](std::string_view line) {
    const auto fields = fieldsOf(line, 7);
    add(users, {nameOf(fields[0]), idOf(fields[2], "the uid"), idOf(fields[3], "the gid")});
  });
  if (users.byName.empty())
    throw AgentError(file + ": it has no account");
}

void ZoneTable::readGroups(std::string_view text, const std::string& file) {
  eachLine(text, file, [this](std::string_view line) {
    const auto fields = fieldsOf(line, 4);
    add(groups, {nameOf(fields[0]), idOf(fields[2], "the gid"), 0});
  });
}

void ZoneTable::readAliases(std::string_view text, const std::string& file) {
  constexpr std::string_view kBlanks = " \t";
  eachLine(text, file, [this, kBlanks](std::string_view line) {
    const size_t gap = line.find_first_of(kBlanks);
    const size_t second = gap == line.npos ? gap : line.find_first_not_of(kBlanks, gap);
    if (gap == 0 || second == line.npos || line.find_first_of(kBlanks, second) != line.npos)
      throw BadLine{"it is not two names with blanks between them"};
    const auto account = users.byName.find(nameOf(line.substr(second)));
    if (account == users.byName.end())
      throw BadLine{"the zone has no user \"" + std::string(line.substr(second)) + "\""};
    const wire::Record record = account->second;  // the emplace may move the table
    if (!users.byName.emplace(nameOf(line.substr(0, gap)), record).second)
      throw BadLine{"\"" + std::string(line.substr(0, gap)) + "\" is taken already"};
    ++aliasCount;
  });
}

Answer ZoneTable::find(const wire::Question& question) const {
  const Index& index = question.kind == wire::Kind::User ? users : groups;
  if (question.name) {
    const auto found = index.byName.find(*question.name);
    return found == index.byName.end() ? Answer{Verdict::NotFound}
                                       : Answer{Verdict::Found, found->second};
  }
  const auto found = index.byId.find(question.id.value());
  return found == index.byId.end() ? Answer{Verdict::NotFound}
                                   : Answer{Verdict::Found, found->second};
}

}  // namespace zonagent
