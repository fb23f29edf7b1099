// One account of an account file gets other ids. Nothing is lost, and where nothing is odd the
// bytes are those of the literal rewrite.
//
// The first line of the input is the name of the account. An input with an odd number of bytes is a
// group file.
#include <list>
#include <optional>

#include "accountdb/account_text.h"
#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void setIdsOf(orvs::DBPasswd& user, const orvs::IdChange& change) {
  user.uid = change.uid;
  user.gid = change.gid;
}

void setIdsOf(orvs::DBGroup& group, const orvs::IdChange& change) {
  group.gid = change.gid;
}

// The literal rewrite by the operators. Nothing unless every line is a plain account or a marker
// line and one account has the name.
template <class Entry>
std::optional<std::string> literally(std::string_view text, const orvs::IdChange& change) {
  std::string accounts, markers;
  bool found = false;
  orvs::LineReader lines(text);
  for (std::string_view line; lines.next(line);) {
    Entry entry;
    const bool accepted = entry.parse(std::string(line));
    if (entry.isMarker()) {
      markers.append(line).append(1, '\n');
      continue;
    }
    const auto account = orvs::accountIn(line, change.kind);
    require(!account || accepted, "an account has an entry");
    require(account || !accepted || entry.name.empty() || orvs::hasNulInName(line),
            "an entry is an account");
    if (!account || !account->isPlain(change.kind))
      return std::nullopt;
    if (!found && entry.name == change.name) {
      found = true;
      setIdsOf(entry, change);
    }
    accounts.append(entry.format()).append(1, '\n');
  }
  if (!found)
    return std::nullopt;
  return accounts + markers;
}

// The lines that no rewrite changes, in order.
std::list<std::string_view> untouched(std::string_view text, const orvs::IdChange& change) {
  std::list<std::string_view> kept;
  orvs::LineReader lines(text);
  for (std::string_view line; lines.next(line) && !line.empty();) {
    const auto account = orvs::accountIn(line, change.kind);
    if (!orvs::isMarkerLine(line) &&
        (!account || (account->name != change.name && !account->isPlain(change.kind))))
      kept.push_back(line);
  }
  return kept;
}

std::string_view behindEmptyLine(std::string_view text) {
  orvs::LineReader lines(text);
  for (std::string_view line; lines.next(line);) {
    if (line.empty())
      return text.substr(static_cast<size_t>(line.data() - text.data()));
  }
  return {};
}

}  // namespace

void tryInput(const std::string& input) {
  const size_t end = std::min(input.find('\n'), input.size());
  const std::string name = input.substr(0, end);
  const std::string text = input.substr(std::min(end + 1, input.size()));
  const bool isGroup = input.size() % 2 == 1;
  const orvs::IdChange change = {isGroup ? orvs::AccountKind::Group : orvs::AccountKind::Passwd,
                                 name, 4294967295u, 7};
  const std::optional<std::string> result = orvs::withIds(text, change);
  const auto expected =
      isGroup ? literally<orvs::DBGroup>(text, change) : literally<orvs::DBPasswd>(text, change);
  require(!expected || result == expected, "as the literal rewrite");
  if (!result)
    return;
  require(untouched(*result, change) == untouched(text, change), "what is no account stays");
  require(behindEmptyLine(*result) == behindEmptyLine(text), "what is behind an empty line stays");
  require(orvs::withIds(*result, change) == result, "once and for all");
}
