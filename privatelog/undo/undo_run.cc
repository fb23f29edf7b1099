#include "privatelog/undo/undo_run.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "accountdb/passwdDB.h"
#include "privatelog/log_header.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/undo/ahead_of_undo.h"
#include "privatelog/undo/owner_restore.h"
#include "privatelog/undo/undo_plan.h"
#include "services/interrupt.h"
#include "services/left_undone.h"
#include "services/paths.h"
#include "services/say.h"

namespace {

// Reports a failed read of the log; true when there was none.
bool isReadWhole(int error, const orvs::LoggerPtr& logger) {
  if (error == 0)
    return true;
  SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot read private log file %s: %s",
      paths::kPrivateLog, strerror(error));
  return false;
}

class UndoRun {
 public:
  UndoRun(const UndoJob& itsJob, const orvs::LoggerPtr& itsLogger)
      : job(itsJob),
        logger(itsLogger),
        restorer(itsLogger,
                 {job.hardened, job.preserveBits, job.preserveCapabilities},
                 job.loaded,
                 job.index,
                 job.fileSystems,
                 job.devices),
        ahead(itsJob.hardened) {}

  // Deals with the ACLs of the section, before its lines, because account lines wait for both.
  // False when it had to stop.
  bool restoreAcls();

  // Deals with every line of the section. False when it had to stop.
  bool run(LogScan& scan);

  // Reports the result, and marks the date of the section when no line of it is left.
  void finish();

 private:
  void noteIdsOfAcls(IndexReader& records);
  bool takeUpAcl(const AttributeChange& change, const LoggedAttribute& logged);
  bool takeUp(const ScannedLine& line);
  Restored dealWith(const ScannedLine& line);
  Restored restore(const ScannedLine& line);
  Restored passwdBack(std::string_view text);
  Restored groupBack(std::string_view text);
  bool mark(uint64_t offset);

  const UndoJob& job;
  orvs::LoggerPtr logger;
  OwnerRestorer restorer;
  AheadOfUndo ahead;
  bool inSection = false;
  uint64_t waiting = 0;  // lines whose obstacle may pass, and account lines that wait for them
};

// Adds the old ids of all recorded ACLs to the old ids of lines. These ids belong to somebody, too,
// even where the ACL was not changed.
void UndoRun::noteIdsOfAcls(IndexReader& records) {
  for (const LoggedAttribute& logged : job.loaded.attributes) {
    const auto change = readAttributeChange(records, logged.position);
    if (!change)
      continue;
    const AclChanges ids = changesOfAcl(change->former, change->converted);
    for (const auto& [oldId, newId] : ids.users)
      job.loaded.oldUids.add(oldId);
    for (const auto& [oldId, newId] : ids.groups)
      job.loaded.oldGids.add(oldId);
  }
}

bool UndoRun::restoreAcls() {
  if (job.loaded.attributes.empty())
    return true;
  IndexReader records;
  if (records.open(paths::kPrivateLogIndex) != IndexReader::Opened::Yes)
    return isReadWhole(EIO, logger);
  noteIdsOfAcls(records);
  for (const LoggedAttribute& logged : job.loaded.attributes) {
    const IndexAttribute& record = logged.record;
    const bool isOver = (record.flags & (kAttributeFailed | kAttributeUndone)) != 0;
    if (isOver || record.what == AttributeKind::Capability || job.loaded.newestPosition == 0 ||
        logged.position < job.loaded.newestPosition)
      continue;
    const auto change = readAttributeChange(records, logged.position);
    if (!change)
      return isReadWhole(EIO, logger);
    if (interrupt::pending() != 0 || !takeUpAcl(*change, logged))
      return false;
  }
  return true;
}

// Sets a flag where a line would get a mark.
bool UndoRun::takeUpAcl(const AttributeChange& change, const LoggedAttribute& logged) {
  const Restored result = job.pretend ? Restored::Done : restorer.restoreAcl(logged, change);
  waiting += result == Restored::Waits ? 1 : 0;
  if (result != Restored::Done)
    return result != Restored::Stop;
  if (!job.pretend)
    ++job.aclCount;
  return job.index.flagAttribute(logged.position, logged.record.flags | kAttributeUndone);
}

bool UndoRun::run(LogScan& scan) {
  while (const ScannedLine* line = scan.next()) {
    if (interrupt::pending() != 0)
      return false;
    if (!takeUp(*line))
      return false;
  }
  return isReadWhole(scan.error(), logger);
}

// Required: only the end of the log ends the section. It is the newest one that is not undone, so
// all lines behind its date are its own, also those behind date lines that were undone.
bool UndoRun::takeUp(const ScannedLine& line) {
  if (line.offset <= job.loaded.newestOffset || job.loaded.newestDate.empty()) {
    inSection = inSection || line.offset == job.loaded.newestOffset;
    return true;
  }
  switch (dealWith(line)) {
    case Restored::Done:
      return mark(line.offset);
    case Restored::Waits:
      ++waiting;
      return true;
    case Restored::NotYet:
      return true;
    case Restored::Stop:
      break;
  }
  return false;
}

Restored UndoRun::dealWith(const ScannedLine& line) {
  switch (undoStep(line.type)) {
    case UndoStep::Pass:
      return Restored::NotYet;
    case UndoStep::MarkOnly:
      return Restored::Done;
    case UndoStep::RestoreIfDone:
      if (!line.vouched && !checkPartialDone(line.record))
        return Restored::NotYet;
      return restore(line);
    case UndoStep::Restore:
      return restore(line);
    case UndoStep::PasswdBack:
      ahead.end();
      return passwdBack(line.text);
    case UndoStep::GroupBack:
      ahead.end();
      return groupBack(line.text);
  }
  return Restored::NotYet;
}

Restored UndoRun::restore(const ScannedLine& line) {
  // Required: a pretended undo marks the line all the same, and so uses the section up.
  if (job.pretend) {
    SAY(logger, 1, "private_log", Echo::Stdout, "chown(%s,%lu,%lu)",
        std::string(line.record.path).c_str(), static_cast<unsigned long>(line.record.oldIds.uid),
        static_cast<unsigned long>(line.record.oldIds.gid));
    return Restored::Done;
  }
  const Restored restored = restorer.restore(line);
  ahead.passed(restorer.currentDirectory(), line.offset);
  return restored;
}

// Required: neither a line that does not parse nor an account that is gone is reported.
Restored UndoRun::passwdBack(std::string_view text) {
  const auto update = parsePasswdUpdateLine(text);
  if (!update || job.pretend)
    return Restored::Done;
  if (waiting > 0)
    return Restored::Waits;
  const std::string name(update->name);
  const bool isSet = job.passwdDB.updateUser(name, update->oldIds.uid, update->oldIds.gid) == 0;
  job.accountCount += isSet ? 1 : 0;
  if (isSet || !job.hardened || job.passwdDB.find(name).isEmpty())
    return Restored::Done;
  left_undone::note();
  SAY(logger, 3, "private_log", Echo::Stderr, "Error: passwd file update failed for user: %s",
      name.c_str());
  return Restored::Waits;
}

Restored UndoRun::groupBack(std::string_view text) {
  const auto update = parseGroupUpdateLine(text);
  if (!update || job.pretend)
    return Restored::Done;
  if (waiting > 0)
    return Restored::Waits;
  const std::string name(update->name);
  const bool isSet = job.groupDB.updateGroup(name, update->oldGid) == 0;
  job.accountCount += isSet ? 1 : 0;
  if (isSet || !job.hardened || job.groupDB.find(name).isEmpty())
    return Restored::Done;
  left_undone::note();
  SAY(logger, 3, "private_log", Echo::Stderr, "Error: group file update failed for group: %s",
      name.c_str());
  return Restored::Waits;
}

bool UndoRun::mark(uint64_t offset) {
  if (!job.log.overwrite(offset, std::string_view(&kUndoneMark, 1))) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot write private log file %s: %s",
        paths::kPrivateLog, strerror(errno));
    return false;
  }
  ++job.count;
  return true;
}

void UndoRun::finish() {
  if (!inSection)
    return;
  const char* date = job.loaded.newestDate.c_str() + 1;
  if (waiting > 0) {
    left_undone::note();
    SAY(logger, 1, "private_log", Echo::Stderr,
        "%lu change(s) from %s could not be backed out yet: run --undo again, or --undo -F to give "
        "them up.",
        static_cast<unsigned long>(waiting), date);
    return;
  }
  SAY(logger, 1, "private_log", Echo::Stderr, "Changes from %s have been backed out.", date);
  job.log.overwrite(job.loaded.newestOffset, std::string_view(&kUndoneMark, 1));
}

}  // namespace

bool undoNewestSection(const UndoJob& job) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  LogScan scan;
  if (!job.log.isOpen() || scan.open(job.hardened) != LogScan::Opened::Yes) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: nothing to undo (no previous log)");
    return false;
  }
  std::string domain;
  if (!getHeader(scan.text(), domain)) {
    isReadWhole(scan.error(), logger);
    return false;
  }
  UndoRun undo(job, logger);
  if (!undo.restoreAcls() || !undo.run(scan))
    return false;
  undo.finish();
  return true;
}
