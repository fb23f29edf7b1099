#include "privatelog/prepared_account.h"

#include <fstream>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "privatelog/log_line.h"
#include "services/paths.h"

namespace {

// The first entry of that name: the one that an update changes.
template <typename Entry>
std::optional<Entry> findAccount(const char* path, std::string_view name) {
  std::ifstream file(path);
  Entry entry;
  for (std::string line; std::getline(file, line);) {
    if (entry.parse(line) && entry.name == name)
      return entry;
  }
  return std::nullopt;
}

bool isAccountLine(std::string_view line) {
  return parsePasswdUpdateLine(line) || parseGroupUpdateLine(line);
}

}  // namespace

std::optional<PreparedAccount> parsePreparedAccount(std::string_view behindNul) {
  const std::string_view text = behindNul.substr(0, behindNul.find('\0'));
  const size_t firstEnd = text.find('\n');
  if (firstEnd == std::string_view::npos)
    return std::nullopt;
  const std::string first(text.substr(0, firstEnd));
  const std::string second(text.substr(firstEnd + 1));
  if (second.empty()) {
    // The missing first byte is the record's own. A group's record has fewer fields than a user's.
    for (const std::string& line : {"=" + first, "@" + first}) {
      if (isAccountLine(line))
        return PreparedAccount{line + "\n", line};
    }
    return std::nullopt;
  }
  // More lines than these are not an account's record but a piece of a path.
  if (second.find('\n') != second.size() - 1 || !isAccountLine(second))
    return std::nullopt;
  return PreparedAccount{"!" + first + "\n" + second, second.substr(0, second.size() - 1)};
}

bool isAccountUpdated(std::string_view line) {
  if (const auto user = parsePasswdUpdateLine(line)) {
    const auto entry = findAccount<orvs::DBPasswd>(paths::kPasswd, user->name);
    return entry && OwnerIds{entry->uid, entry->gid} == user->newIds;
  }
  if (const auto group = parseGroupUpdateLine(line)) {
    const auto entry = findAccount<orvs::DBGroup>(paths::kGroup, group->name);
    return entry && entry->gid == group->newGid;
  }
  return false;
}
