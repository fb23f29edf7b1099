// The account phase, as the log sees it: a plan, a line for each update, and what a former run left
// of both.

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

// The order is that of a change: what is on the disk is never less than what is said of it. So the
// lines that exist go there first, with the entries that were changed, then the plan.
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
  plan.section = dateLinePending ? 0 : 1;  // which one is not asked any more
  plan.updates = std::move(updates);
  return plan;
}

bool PrivateLog::writeAccountLine(const PlannedUpdate& update) {
  const IndexLine line = formatAccountLine(update);
  const std::string text = writtenLine;  // a date line may come first
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

// The lines of its updates go to the disk first: until they are there, the plan is what tells of
// them.
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

// An update that a run made and could not log any more gets its line, so that an undo knows of it.
// The log is open for writing. False when the log cannot take it.
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

// From here on the section is one that is taken back, whatever becomes of this undo: nobody goes on
// with its accounts. A plan without a section has none to be taken back with.
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
