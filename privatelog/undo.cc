// Undo: the newest section of the log, backed out line by line from front to back.
//
// Each line is turned into a comment as soon as it has been dealt with, so an undo that was stopped
// is simply run again: setting an owner back twice does no harm. Changes are backed out in the
// order in which they were made, and account updates come last because they stand last. One section
// goes per call.
//
// The log is read on a descriptor of its own; marks go through the one that holds the log. close()
// brings marks and restored files to the disk.
#include <cerrno>
#include <cstring>
#include <string>

#include "accountdb/passwdDB.h"
#include "privatelog/owner_restore.h"
#include "privatelog/private_log.h"
#include "privatelog/undo_plan.h"
#include "services/interrupt.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

namespace {

// Says so when the reading ended before the log did.
bool isReadWhole(const LogReader& reader, const orvs::LoggerPtr& logger) {
  if (reader.error() == 0)
    return true;
  SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot read private log file %s: %s",
      paths::kPrivateLog, strerror(reader.error()));
  return false;
}

}  // namespace

class PrivateLog::UndoRun {
 public:
  UndoRun(PrivateLog& itsLog,
          const orvs::LoggerPtr& itsLogger,
          orvs::PasswdDB& passwd,
          orvs::GroupDB& group,
          bool pretend)
      : log(itsLog),
        logger(itsLogger),
        passwdDB(passwd),
        groupDB(group),
        pretending(pretend),
        restorer(itsLogger, rulesOf(itsLog), itsLog.changedDevices) {}

  // Deals with every line of the section. False when it had to stop.
  bool run(LogReader& reader);

  // The section's date line has been seen.
  bool isInSection() const { return inSection; }

 private:
  enum class Verdict { Mark, Leave, Stop };

  static OwnerRestorer::Rules rulesOf(const PrivateLog& log) {
    return {log.hardened,
            orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_PRESERVE_EXECUTION_BITS, false)};
  }

  Verdict dealWith(const LogLine& line);
  Verdict restore(const PrivateLogRecord& record, UndoStep step);
  void passwdBack(std::string_view text);
  void groupBack(std::string_view text);
  bool mark(uint64_t offset);

  PrivateLog& log;
  orvs::LoggerPtr logger;
  orvs::PasswdDB& passwdDB;
  orvs::GroupDB& groupDB;
  const bool pretending;
  OwnerRestorer restorer;
  bool inSection = false;
  bool insideName = false;  // the line in work is a piece of a path
};

bool PrivateLog::UndoRun::run(LogReader& reader) {
  while (const std::optional<LogLine> line = reader.next()) {
    if (interrupt::pending() != 0)
      return false;
    const Verdict verdict = dealWith(*line);
    if (verdict == Verdict::Stop || (verdict == Verdict::Mark && !mark(line->offset)))
      return false;
  }
  return isReadWhole(reader, logger);
}

PrivateLog::UndoRun::Verdict PrivateLog::UndoRun::dealWith(const LogLine& line) {
  insideName = log.hardened && log.lineFeedRanges.contains(line.offset);
  if (!inSection) {
    // Required: the first date line of that text begins the section, and nothing ends it. A log
    // without a date line has an empty text, and may have empty lines.
    inSection = !insideName && !line.text.empty() && line.text == log.lastDateLine;
    return Verdict::Leave;
  }
  PrivateLogRecord record;
  const LineType type = parseLogLine(line.text, record);
  const UndoStep step = undoStep(type);
  switch (step) {
    case UndoStep::Pass:
      return Verdict::Leave;
    case UndoStep::MarkOnly:
      return Verdict::Mark;
    case UndoStep::Restore:
    case UndoStep::RestoreThrough:
      return restore(record, step);
    case UndoStep::RestoreIfDone:
      return checkPartialDone(record) ? restore(record, step) : Verdict::Leave;
    case UndoStep::PasswdBack:
      passwdBack(line.text);
      return Verdict::Mark;
    case UndoStep::GroupBack:
      groupBack(line.text);
      return Verdict::Mark;
  }
  return Verdict::Leave;
}

PrivateLog::UndoRun::Verdict PrivateLog::UndoRun::restore(const PrivateLogRecord& record,
                                                          UndoStep step) {
  // Required: the line is marked all the same, so a pretended undo uses the section up.
  if (pretending) {
    SAY(logger, 1, "private_log", Echo::Stdout, "chown(%s,%lu,%lu)",
        std::string(record.path).c_str(), static_cast<unsigned long>(record.oldIds.uid),
        static_cast<unsigned long>(record.oldIds.gid));
    return Verdict::Mark;
  }
  const Credit credit = log.hardened ? creditOfLine(record, insideName) : Credit::Full;
  return restorer.restore(record, step, credit) ? Verdict::Mark : Verdict::Stop;
}

// Required: neither a line that does not parse nor an update that fails is told of.
void PrivateLog::UndoRun::passwdBack(std::string_view text) {
  const auto update = parsePasswdUpdateLine(text);
  if (update && !pretending && !insideName)
    passwdDB.updateUser(std::string(update->name), update->oldIds.uid, update->oldIds.gid);
}

void PrivateLog::UndoRun::groupBack(std::string_view text) {
  const auto update = parseGroupUpdateLine(text);
  if (update && !pretending && !insideName)
    groupDB.updateGroup(std::string(update->name), update->oldGid);
}

bool PrivateLog::UndoRun::mark(uint64_t offset) {
  if (!log.file.overwrite(offset, kUndoneMark)) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot write private log file %s: %s",
        paths::kPrivateLog, strerror(errno));
    return false;
  }
  ++log.changeCount;
  return true;
}

bool PrivateLog::Undo(orvs::PasswdDB& passwdDB,
                      orvs::GroupDB& groupDB,
                      const CommandOptions& options) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  LogReader reader;
  if (!file.isOpen() || !reader.open(paths::kPrivateLog)) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: nothing to undo (no previous log)");
    return false;
  }
  std::string domain;
  if (!getHeader(reader, domain)) {
    isReadWhole(reader, logger);
    return false;
  }

  isUndoing = true;
  UndoRun undo(*this, logger, passwdDB, groupDB, options.pretend);
  if (!undo.run(reader))
    return false;
  if (undo.isInSection()) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Changes from %s have been backed out.",
        lastDateLine.c_str() + 1);
    markRunUndone();
  }
  return true;
}

// Turns the section's date line into a comment; the section before it is the newest then.
void PrivateLog::markRunUndone() {
  LogReader reader;
  std::string domain;
  if (!reader.open(paths::kPrivateLog) || !getHeader(reader, domain))
    return;
  while (const std::optional<LogLine> found = reader.next()) {
    if (found->text != lastDateLine || (hardened && lineFeedRanges.contains(found->offset)))
      continue;
    file.overwrite(found->offset, kUndoneMark);
    return;
  }
}
