#include "privatelog/open_plans.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "privatelog/log_scan.h"
#include "services/paths.h"

namespace {

constexpr size_t kLongestDate = 128;

// The positions of all plans, newest first. Each plan names the previous one; when that chain is
// damaged the whole index is searched.
std::vector<uint64_t> planPositions(IndexReader& index) {
  std::vector<uint64_t> found;
  uint64_t position = index.newestPlan();
  uint64_t limit = LogReader::kNoLimit;
  while (position != 0 && position < limit) {
    index.seek(position);
    const auto bytes = index.next();
    if (!bytes || kindOf(bytes->data()) != IndexKind::Plan)
      break;
    found.push_back(position);
    limit = position;
    position = fromBytes<IndexPlan>(bytes->data()).previous;
  }
  if (position == 0)
    return found;
  found.clear();
  index.seek(kIndexRecordSize);
  while (const auto bytes = index.next()) {
    if (kindOf(bytes->data()) == IndexKind::Plan)
      found.insert(found.begin(), index.position());
  }
  return found;
}

// ---- The section of a plan

enum class SectionState { Stands, Undone, Lost, Moved };

// Looks at the offset of the section's date line. Moved: another text is there, so the log was
// edited by hand.
SectionState lookAtSection(IndexReader& index, int log, uint64_t position, std::string& date) {
  index.seek(position);
  const auto bytes = index.next();
  if (!bytes || kindOf(bytes->data()) != IndexKind::Section)
    return SectionState::Lost;
  const auto section = fromBytes<IndexSection>(bytes->data());
  std::array<char, kLongestDate> piece = {};
  const ssize_t length = pread(log, piece.data(), piece.size(), static_cast<off_t>(section.offset));
  const std::string_view text(piece.data(), length > 0 ? static_cast<size_t>(length) : 0);
  const size_t end = text.find('\n');
  if (end == 0 || end == text.npos ||
      checksumOf(index.seed(), text.substr(1, end - 1)) != section.checksum)
    return SectionState::Moved;
  date = text.substr(1, end - 1);
  return text.front() == kUndoneMark ? SectionState::Undone : SectionState::Stands;
}

// Searches the whole log for the section's date line.
SectionState findSection(uint64_t position, std::string& date) {
  LogScan scan;
  if (scan.open(true) != LogScan::Opened::Yes)
    return SectionState::Lost;
  scan.text().next();  // the header
  while (const ScannedLine* line = scan.next()) {
    if (!line->vouched || line->vouched->line.kind != IndexKind::Section ||
        line->vouched->position != position)
      continue;
    date = line->text.substr(1);
    return line->isMarked ? SectionState::Undone : SectionState::Stands;
  }
  return SectionState::Lost;
}

bool isSectionStanding(IndexReader& index, int log, AccountPlan& plan) {
  if (plan.section == 0)
    return true;
  SectionState state = lookAtSection(index, log, plan.section, plan.date);
  if (state == SectionState::Moved)
    state = findSection(plan.section, plan.date);
  return state == SectionState::Stands;
}

// ---- The account files

// The ids of the accounts of one file, by name.
using IdsByName = std::multimap<std::string, OwnerIds>;

OwnerIds idsOf(const orvs::DBPasswd& entry) {
  return {entry.uid, entry.gid};
}
OwnerIds idsOf(const orvs::DBGroup& entry) {
  return {0, entry.gid};
}

template <class Entry>
IdsByName readIds(const char* path) {
  IdsByName ids;
  std::ifstream file(path);
  Entry entry;
  for (std::string line; std::getline(file, line);) {
    if (entry.parse(line))
      ids.emplace(entry.name, idsOf(entry));
  }
  return ids;
}

}  // namespace

std::vector<AccountPlan> findOpenPlans() {
  std::vector<AccountPlan> open;
  LogReader log;
  IndexReader index;
  if (index.open(paths::kPrivateLogIndex) != IndexReader::Opened::Yes ||
      !log.open(paths::kPrivateLog))
    return open;
  for (const uint64_t position : planPositions(index)) {
    IndexPlan header;
    auto plan = readPlan(index, position, header);
    if (plan && header.isClosed == 0 && isSectionStanding(index, log.descriptor(), *plan))
      open.insert(open.begin(), std::move(*plan));
  }
  return open;
}

std::vector<PlannedUpdate> updatesMade(const AccountPlan& plan) {
  const IdsByName users = readIds<orvs::DBPasswd>(paths::kPasswd);
  const IdsByName groups = readIds<orvs::DBGroup>(paths::kGroup);
  std::vector<PlannedUpdate> made;
  for (const PlannedUpdate& update : plan.updates) {
    const auto [begin, end] = (update.isGroup ? groups : users).equal_range(update.name);
    const bool isMade =
        std::any_of(begin, end, [&](const auto& found) { return found.second == update.newIds; });
    if (isMade)
      made.push_back(update);
  }
  return made;
}
