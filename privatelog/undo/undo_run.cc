#include "privatelog/undo/undo_run.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "accountdb/passwdDB.h"
#include "privatelog/log_header.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/undo/owner_restore.h"
#include "privatelog/undo/undo_plan.h"
#include "services/interrupt.h"
#include "services/paths.h"
#include "services/say.h"

namespace {

// Says so when the reading ended before the log did.
bool isReadWhole(const LogReader& reader, const orvs::LoggerPtr& logger) {
  if (reader.error() == 0)
    return true;
  SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot read private log file %s: %s",
      paths::kPrivateLog, strerror(reader.error()));
  return false;
}

class UndoRun {
 public:
  UndoRun(const UndoJob& itsJob, const orvs::LoggerPtr& itsLogger)
      : job(itsJob),
        logger(itsLogger),
        restorer(itsLogger, {job.untrusted != nullptr, job.preserveBits}, job.devices) {}

  // Deals with every line of the section. False when it had to stop.
  bool run(LogReader& reader);

  // Turns the section's date line into a comment; the section before it is the newest then.
  void markDate() { job.log.overwrite(*dateOffset, kUndoneMark); }

  bool isInSection() const { return dateOffset.has_value(); }

 private:
  enum class Verdict { Mark, Leave, Stop };

  Verdict dealWith(const LogLine& line);
  Verdict restore(const PrivateLogRecord& record, UndoStep step);
  void passwdBack(std::string_view text);
  void groupBack(std::string_view text);
  bool mark(uint64_t offset);

  const UndoJob& job;
  orvs::LoggerPtr logger;
  OwnerRestorer restorer;
  std::optional<uint64_t> dateOffset;  // of the section's date line, once it has been seen
  bool insideName = false;             // the line in work is a piece of a path
};

bool UndoRun::run(LogReader& reader) {
  while (const std::optional<LogLine> line = reader.next()) {
    if (interrupt::pending() != 0)
      return false;
    const Verdict verdict = dealWith(*line);
    if (verdict == Verdict::Stop || (verdict == Verdict::Mark && !mark(line->offset)))
      return false;
  }
  return isReadWhole(reader, logger);
}

UndoRun::Verdict UndoRun::dealWith(const LogLine& line) {
  insideName = job.untrusted != nullptr && job.untrusted->contains(line.offset);
  if (!isInSection()) {
    // Required: the first date line of that text begins the section, and nothing ends it. A log
    // without a date line has an empty text, and may have empty lines.
    if (!insideName && !line.text.empty() && line.text == job.dateLine)
      dateOffset = line.offset;
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

UndoRun::Verdict UndoRun::restore(const PrivateLogRecord& record, UndoStep step) {
  // Required: the line is marked all the same, so a pretended undo uses the section up.
  if (job.pretend) {
    SAY(logger, 1, "private_log", Echo::Stdout, "chown(%s,%lu,%lu)",
        std::string(record.path).c_str(), static_cast<unsigned long>(record.oldIds.uid),
        static_cast<unsigned long>(record.oldIds.gid));
    return Verdict::Mark;
  }
  const Credit credit = job.untrusted != nullptr ? creditOfLine(record, insideName) : Credit::Full;
  return restorer.restore(record, step, credit) ? Verdict::Mark : Verdict::Stop;
}

// Required: neither a line that does not parse nor a failed update is reported.
void UndoRun::passwdBack(std::string_view text) {
  const auto update = parsePasswdUpdateLine(text);
  if (update && !job.pretend && !insideName)
    job.passwdDB.updateUser(std::string(update->name), update->oldIds.uid, update->oldIds.gid);
}

void UndoRun::groupBack(std::string_view text) {
  const auto update = parseGroupUpdateLine(text);
  if (update && !job.pretend && !insideName)
    job.groupDB.updateGroup(std::string(update->name), update->oldGid);
}

bool UndoRun::mark(uint64_t offset) {
  if (!job.log.overwrite(offset, kUndoneMark)) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot write private log file %s: %s",
        paths::kPrivateLog, strerror(errno));
    return false;
  }
  ++job.count;
  return true;
}

}  // namespace

bool undoNewestSection(const UndoJob& job) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  LogReader reader;
  if (!job.log.isOpen() || !reader.open(paths::kPrivateLog)) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: nothing to undo (no previous log)");
    return false;
  }
  std::string domain;
  if (!getHeader(reader, domain)) {
    isReadWhole(reader, logger);
    return false;
  }
  UndoRun undo(job, logger);
  if (!undo.run(reader))
    return false;
  if (undo.isInSection()) {
    SAY(logger, 1, "private_log", Echo::Stderr, "Changes from %s have been backed out.",
        job.dateLine.c_str() + 1);
    undo.markDate();
  }
  return true;
}
