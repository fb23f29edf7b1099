// The log's part in account updates: the plan, a line for each update, and what former runs left of
// both.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "privatelog/log_header.h"
#include "privatelog/open_plans.h"
#include "privatelog/private_log.h"
#include "services/paths.h"
#include "services/say.h"

IndexLine PrivateLog::formatAccountLine(const PlannedUpdate& update) {
  writtenLine.clear();
  IndexLine line;
  line.kind = update.isGroup ? IndexKind::Group : IndexKind::Passwd;
  line.nameLength = static_cast<uint32_t>(update.name.size());
  line.newIds = update.newIds;
  if (update.isGroup)
    appendGroupUpdateLine(writtenLine, update.name, update.oldIds.gid, update.newIds.gid);
  else
    appendPasswdUpdateLine(writtenLine, update.name, update.oldIds, update.newIds);
  return line;
}

// All lines and changed entries are synced before the plan is: an account must not have its new ids
// on the disk while its files still have the old owner there.
std::optional<AccountPlan> PrivateLog::planAccountUpdates(std::vector<PlannedUpdate> updates) {
  size_t room = 0;
  for (const PlannedUpdate& update : updates) {
    formatAccountLine(update);
    room += writtenLine.size();
  }
  if (!sync() || !file.reserve(room))
    return std::nullopt;
  const auto position = index.addPlan(updates, file.end(), !dateLinePending);
  if (!position || !index.reserveRecords(updates.size() + 1))
    return std::nullopt;
  hasRecorded = true;
  AccountPlan plan;
  plan.position = *position;
  plan.section = dateLinePending ? 0 : 1;  // from now on it only matters whether this is 0
  plan.updates = std::move(updates);
  return plan;
}

bool PrivateLog::writeAccountLine(const PlannedUpdate& update) {
  const IndexLine line = formatAccountLine(update);
  const std::string text = writtenLine;  // startSection() may use writtenLine
  if (!startSection(text.size()))
    return false;
  writtenLine = text;
  return appendLine(line, 0);
}

void PrivateLog::addAccountUpdate(const PlannedUpdate& update, const AccountPlan& plan) {
  const bool beginsSection = dateLinePending;
  ++accountCount;
  if (!writeAccountLine(update)) {
    hasUnrecordedUpdate = true;
    return;
  }
  if (beginsSection && plan.section == 0)
    index.setPlanSection(plan.position);
  completeLine({});
}

void PrivateLog::addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds) {
  writeAccountLine({false, name, oldIds, newIds});
}

void PrivateLog::addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid) {
  writeAccountLine({true, name, {0, oldGid}, {0, newGid}});
}

// The lines of the updates are synced first: until they are on the disk, only the plan knows of the
// updates.
void PrivateLog::closePlan(const AccountPlan& plan) {
  if (!hasUnrecordedUpdate && index.sync() && file.sync())
    index.closePlan(plan.position);
}

// ---- Plans of former runs

const std::vector<AccountPlan>& PrivateLog::loadOpenPlans() {
  readSettings();
  plans.clear();
  LogReader reader;
  if (!hardened || !reader.open(paths::kPrivateLog))
    return plans;
  const auto header = reader.next();
  const auto logDomain = header ? parseHeaderLine(header->text) : std::nullopt;
  std::string domain;
  if (logDomain && getCurrentDomain(domain) && domain == *logDomain)
    plans = findOpenPlans();
  return plans;
}

bool PrivateLog::isLogged(const PlannedUpdate& update, const AccountPlan& plan) const {
  return std::any_of(
      loaded.accounts.begin(), loaded.accounts.end(), [&](const LoggedAccount& logged) {
        return logged.update == update && (logged.position == 0 || logged.position > plan.position);
      });
}

// Writes the missing line of each update that a former run made but did not record, so that an undo
// knows of it. The log is open for writing. False when the log cannot take a line.
bool PrivateLog::recordMadeUpdates() {
  plans = findOpenPlans();
  bool isAnyWritten = false;
  for (const AccountPlan& plan : plans) {
    dateLinePending = plan.section == 0;
    for (const PlannedUpdate& update : updatesMade(plan)) {
      if (isLogged(update, plan))
        continue;
      addAccountUpdate(update, plan);
      if (hasUnrecordedUpdate)
        return false;
      isAnyWritten = true;
    }
  }
  if (isAnyWritten && !readAgain())
    return false;
  plans = hardened ? findOpenPlans() : std::vector<AccountPlan>();
  return true;
}

// Closes the plan of the section that this undo backs out: even if the undo is cut short, no later
// run may continue the updates of that plan. A plan without a section is closed as well, because no
// undo would ever close it.
bool PrivateLog::closePlansOfUndo() {
  bool isAnyClosed = false;
  for (const AccountPlan& plan : plans) {
    if (plan.section != 0 && plan.section != loaded.newestPosition)
      continue;
    if (!index.closePlan(plan.position)) {
      SAY(getLogger("cli.idshift", false), 1, "private_log", Echo::Stderr,
          "Error: cannot write private log file %s: %s", paths::kPrivateLogIndex, strerror(errno));
      return false;
    }
    isAnyClosed = true;
  }
  return !isAnyClosed || sync();
}
