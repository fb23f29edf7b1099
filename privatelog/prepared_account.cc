#include "privatelog/prepared_account.h"

#include <fstream>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "privatelog/log_line.h"
#include "services/paths.h"

namespace {

// The first entry of that name, which is the one that an update changes.
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
  const size_t firstEnd = behindNul.find('\n');
  if (firstEnd == std::string_view::npos)
    return std::nullopt;
  const std::string first(behindNul.substr(0, firstEnd));
  const std::string_view behindFirst = behindNul.substr(firstEnd + 1);
  // The first byte of all is the one that was held back. A group's record has fewer fields than a
  // user's.
  if (behindFirst.empty() || behindFirst.front() == '\0') {
    for (const std::string& line : {"=" + first, "@" + first}) {
      if (isAccountLine(line))
        return PreparedAccount{line + "\n", line};
    }
    return std::nullopt;
  }
  const std::string second(behindFirst.substr(0, behindFirst.find('\n')));
  if (second.size() == behindFirst.size() || !isAccountLine(second))
    return std::nullopt;
  return PreparedAccount{"!" + first + "\n" + second + "\n", second};
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
