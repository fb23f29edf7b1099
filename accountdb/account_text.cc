#include "accountdb/account_text.h"

#include "accountdb/db_entry.h"

namespace orvs {
namespace {

// Appends an id field with the value `value`. A field that is no plain number is kept when it
// already has this value; false when it has another.
bool appendId(std::string& out, std::string_view field, uint32_t value) {
  if (plainNumber(field)) {
    out += std::to_string(value);
    return true;
  }
  out += field;
  return parseUnsignedField(field) == value;
}

void appendMembers(std::string& out, std::string_view tail) {
  FieldReader items(tail.substr(1), ',');
  char separator = ':';
  for (std::string_view item; items.next(item);) {
    if (item.empty())
      continue;
    out.append(1, separator).append(item);
    separator = ',';
  }
  if (separator == ':')
    out += separator;
}

bool hasLeadingZero(std::string_view number) {
  return number.size() > 1 && number.front() == '0';
}

// Builds the new text line by line. Accounts and other lines go to one string, marker lines to
// another, which joinedWith() appends.
class Rewrite {
 public:
  Rewrite(const IdChange& itsChange, std::size_t size) : change(itsChange) {
    accounts.reserve(size + 32);  // ids may grow
  }

  // False when the account is found and cannot be changed.
  bool put(std::string_view line);

  bool isFound() const { return found; }
  std::string joinedWith(std::string_view rest) {
    return std::move(accounts.append(markers).append(rest));
  }

 private:
  bool putAccount(const AccountLine& account, uint32_t uid, uint32_t gid);
  bool putOther(const AccountLine& account, std::string_view line);

  const IdChange& change;
  std::string accounts;
  std::string markers;
  bool found = false;
};

bool Rewrite::put(std::string_view line) {
  if (isMarkerLine(line)) {
    markers.append(line).append(1, '\n');
    return true;
  }
  const std::optional<AccountLine> account = accountIn(line, change.kind);
  if (!account) {
    accounts.append(line).append(1, '\n');
    return true;
  }
  if (found || account->name != change.name)
    return putOther(*account, line);
  found = true;
  return putAccount(*account, change.uid, change.gid);
}

bool Rewrite::putAccount(const AccountLine& account, uint32_t uid, uint32_t gid) {
  const bool isGroup = change.kind == AccountKind::Group;
  accounts += account.head;
  if (!isGroup && !appendId(accounts, account.uid, uid))
    return false;
  if (!isGroup)
    accounts += ':';
  if (!appendId(accounts, account.gid, gid))
    return false;
  if (isGroup && account.isPlain(change.kind) && hasEmptyMember(account.tail))
    appendMembers(accounts, account.tail);
  else
    accounts += account.tail;
  accounts += '\n';
  return true;
}

// Appends an account whose ids stay. Its line is copied, except that leading zeros of plain ids and
// empty members are removed, as every rewrite has done.
bool Rewrite::putOther(const AccountLine& account, std::string_view line) {
  const bool changes = hasLeadingZero(account.uid) || hasLeadingZero(account.gid) ||
                       (change.kind == AccountKind::Group && hasEmptyMember(account.tail));
  if (changes && account.isPlain(change.kind))
    return putAccount(account, plainNumber(account.uid).value_or(0), *plainNumber(account.gid));
  accounts.append(line).append(1, '\n');
  return true;
}

}  // namespace

std::optional<std::string> withIds(std::string_view text, const IdChange& change) {
  Rewrite rewrite(change, text.size());
  LineReader lines(text);
  std::string_view rest;
  for (std::string_view line; lines.next(line);) {
    if (line.empty()) {
      rest = text.substr(static_cast<std::size_t>(line.data() - text.data()));
      break;
    }
    if (!rewrite.put(line))
      return std::nullopt;
  }
  if (!rewrite.isFound())
    return std::nullopt;
  return rewrite.joinedWith(rest);
}

}  // namespace orvs
