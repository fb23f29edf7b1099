#include "zonagent/zone_table.h"

#include <charconv>
#include <utility>
#include <vector>

namespace zonagent {
namespace {

namespace wire = orvs::wire;

// What is wrong with a line; eachLine() adds the file and the line's number.
struct BadLine {
  std::string why;
};

// Calls `take` for each line that is neither empty nor a comment.
template <class Take>
void eachLine(const Pieces& text, const std::string& file, const Take& take) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  size_t number = 1;
  std::string begun;  // the beginning of a line whose rest is in the next piece
  try {
    for (std::string_view piece = text(); !piece.empty(); piece = text()) {
      for (size_t end = 0; (end = piece.find('\n')) != piece.npos; ++number) {
        std::string_view line = piece.substr(0, end);
        if (!begun.empty())
          line = begun.append(line);
        if (number == 1 && line.starts_with(kByteOrderMark))
          throw BadLine{"the file begins with a byte order mark"};
        if (!line.empty() && line[0] != '#')
          take(line);
        begun.clear();
        piece.remove_prefix(end + 1);
      }
      begun.append(piece);
    }
    if (!begun.empty())
      throw BadLine{"the last line has no line feed; the file may be cut short"};
  } catch (const BadLine& bad) {
    throw AgentError(file + ":" + std::to_string(number) + ": " + bad.why);
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
    throw BadLine{"the line has " + std::to_string(fields.size()) + " fields instead of " +
                  std::to_string(count)};
  return fields;
}

std::string_view nameOf(std::string_view field) {
  if (wire::nameForm(field) != wire::NameForm::Good)
    throw BadLine{"the name is empty, is not UTF-8 or has a control character"};
  if (field[0] == '+' || field[0] == '-')
    throw BadLine{"entries that begin with + or - are not allowed in a zone"};
  return field;
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

Pieces inOnePiece(std::string_view text) {
  return [text]() mutable { return std::exchange(text, {}); };
}

void ZoneTable::Index::makeRoomFor(const Index& former) {
  byName.reserve(former.byName.size());
  byId.reserve(former.byId.size());
}

void ZoneTable::Index::add(std::string_view name, uint32_t id, uint32_t gid, const Index& former) {
  const auto isSame = [&](const Account& account) {
    return account.id == id && account.gid == gid;
  };
  if (const SharedAccount* known = byName.find(name)) {
    if (!isSame(**known))
      throw BadLine{"\"" + std::string(name) + "\" is listed twice with different ids"};
    return;
  }
  const SharedAccount* before = former.byName.find(name);
  const SharedAccount account =
      before && isSame(**before) ? *before : SharedAccount(new Account(name, id, gid));
  byName.insert(account);
  if (!byId.find(id))
    byId.insert(account);
}

void ZoneTable::readUsers(const Pieces& text, const std::string& file, const ZoneTable& former) {
  users.makeRoomFor(former.users);
  eachLine(text, file, [&](std::string_view line) {
    const auto fields = fieldsOf(line, 7);
    const std::string_view name = nameOf(fields[0]);
    const uint32_t uid = idOf(fields[2], "the uid");
    users.add(name, uid, idOf(fields[3], "the gid"), former.users);
  });
  if (users.byName.size() == 0)
    throw AgentError(file + ": the file has no account");
}

void ZoneTable::readGroups(const Pieces& text, const std::string& file, const ZoneTable& former) {
  groups.makeRoomFor(former.groups);
  eachLine(text, file, [&](std::string_view line) {
    const auto fields = fieldsOf(line, 4);
    const std::string_view name = nameOf(fields[0]);
    groups.add(name, idOf(fields[2], "the gid"), 0, former.groups);
  });
}

void ZoneTable::readAliases(const Pieces& text, const std::string& file) {
  constexpr std::string_view kBlanks = " \t";
  eachLine(text, file, [this, kBlanks](std::string_view line) {
    const size_t gap = line.find_first_of(kBlanks);
    const size_t second = gap == line.npos ? gap : line.find_first_not_of(kBlanks, gap);
    if (gap == 0 || second == line.npos || line.find_first_of(kBlanks, second) != line.npos)
      throw BadLine{"the line is not two names with blanks between them"};
    const std::string other(nameOf(line.substr(0, gap)));
    const std::string_view name = nameOf(line.substr(second));
    const auto alias = aliases.find(std::string(name));  // an alias may name another alias
    const SharedAccount* account =
        alias == aliases.end() ? users.byName.find(name) : &alias->second;
    if (!account)
      throw BadLine{"the zone has no user \"" + std::string(name) + "\""};
    if (users.byName.find(other) || !aliases.emplace(other, *account).second)
      throw BadLine{"\"" + other + "\" is a user or an alias already"};
  });
}

Answer ZoneTable::find(const wire::Question& question) const {
  const bool isUser = question.kind == wire::Kind::User;
  const Index& index = isUser ? users : groups;
  const SharedAccount* found =
      question.name ? index.byName.find(*question.name) : index.byId.find(question.id.value());
  if (!found && isUser && question.name) {
    const auto alias = aliases.find(*question.name);
    found = alias == aliases.end() ? nullptr : &alias->second;
  }
  if (!found)
    return {Verdict::NotFound};
  return {Verdict::Found, {(*found)->name, (*found)->id, (*found)->gid}};
}

}  // namespace zonagent
