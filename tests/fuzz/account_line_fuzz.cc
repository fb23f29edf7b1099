// A line of passwd or group that is accepted changes at most once by a rewrite: the formatted line
// parses and formats to itself, whatever the entry held before.
#include <algorithm>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// Parses and formats. Empty when the line is not accepted or has no name.
template <class Entry>
std::string rewritten(const std::string& line, Entry& entry) {
  const bool accepted = entry.parse(line);
  require(accepted || (entry.name.empty() && entry.format().empty()), "no name without a line");
  require(!accepted || !entry.isMarker(), "marker lines are not entries");
  require(entry.isMarker() == (line.starts_with('+') || line.starts_with('-')), "markers are told");
  return entry.format();
}

template <class Entry>
void checkEntry(const std::string& line) {
  Entry entry;
  const std::string once = rewritten(line, entry);
  if (once.empty())
    return;
  // A fourth colon makes a group line change once more, see DBGroup::parse.
  if (std::is_same_v<Entry, orvs::DBGroup> && std::count(once.begin(), once.end(), ':') > 3)
    return;
  Entry other;
  require(rewritten(once, other) == once, "a rewritten line stays as it is");
  require(rewritten(once, entry) == once, "in a used entry too");
  const auto colons = std::count(line.begin(), line.end(), ':');
  require(colons > 3 || std::count(once.begin(), once.end(), ':') == colons, "as many fields");
}

}  // namespace

void tryInput(const std::string& line) {
  checkEntry<orvs::DBPasswd>(line);
  checkEntry<orvs::DBGroup>(line);
}
