#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "privatelog/log_recovery.h"
#include "privatelog/private_log.h"
#include "services/logger.h"
#include "services/paths.h"

namespace {

bool isSameState(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Writes the reason to the diagnosis log, because the caller's message has none. `error` is an
// errno or 0. Always false.
bool refuse(const char* what, const char* path, int error) {
  ORVS_LOG(getLogger("cli.idshift", false), 3, "private_log",
           "the private log is not opened for writing: %s%s%s%s", what, path,
           error != 0 ? ": " : "", error != 0 ? strerror(error) : "");
  return false;
}

}  // namespace

bool PrivateLog::openPrivateLog(bool append) {
  readSettings();
  dateLinePending = isUndoing = hasRecorded = hasUnrecordedUpdate = false;
  plans.clear();
  if (!runLock.take()) {
    const int error = errno;
    return refuse(error == EWOULDBLOCK ? "another run holds " : "cannot lock ", paths::kRunLock,
                  error);
  }
  if (openLocked(append)) {
    runStart = file.end();
    dateLinePending = true;
    return true;
  }
  file.close();
  index.close();
  release();
  return false;
}

bool PrivateLog::openLocked(bool append) {
  const bool wasThere = access(paths::kPrivateLog, F_OK) == 0;
  if (!file.open(paths::kPrivateLog, creationMode))
    return refuse(errno == EPERM ? "others than root can change " : "cannot open ",
                  paths::kPrivateLog, errno);
  if (loadState == LoadState::Unreadable)
    return refuse("its records cannot be read: ", paths::kPrivateLog, 0);
  if (loadState == LoadState::Misfit)
    return refuse("this index does not fit: ", paths::kPrivateLogIndex, 0);
  if (!isUnchangedSinceLoad())
    return refuse("another run has just changed ", paths::kPrivateLog, 0);
  if (!(append ? continueLog() : startAfresh(wasThere)))
    return refuse(append ? "cannot continue " : "cannot begin ", paths::kPrivateLog, errno);
  return true;
}

// Whether no other run has written between the load and the lock. A write through a mapping changes
// neither size nor time of the file, but it changes the byte behind the end of the content.
bool PrivateLog::isUnchangedSinceLoad() const {
  struct stat present = {};
  if (fstat(file.descriptor(), &present) != 0)
    return false;
  switch (loadState) {
    case LoadState::NotLoaded:
      return true;
    case LoadState::Absent:
      return present.st_size == 0;
    case LoadState::Unreadable:
    case LoadState::Misfit:
      return false;
    case LoadState::Loaded:
      break;
  }
  char behind = '\0';
  const uint64_t end = scan->end().textEnd;
  const bool isReadable = pread(file.descriptor(), &behind, 1, static_cast<off_t>(end)) >= 0;
  return isSameState(present, seen) && isReadable && (behind == '\0' || end == 0);
}

bool PrivateLog::startAfresh(bool logWasThere) {
  // The domain is read first: if that fails the old log stays.
  std::string domain;
  if (!getCurrentDomain(domain))
    return false;
  loaded = LoadedLog();
  index.startAfresh();
  if (!former.clearTheWay(logWasThere) ||
      (former.isKept() && !file.open(paths::kPrivateLog, creationMode)) || !file.setEnd(0))
    return false;
  LineFeedRanges::forget(file.descriptor());
  writtenLine.clear();
  appendHeaderLine(writtenLine, domain);
  return file.append(writtenLine);
}

bool PrivateLog::readAgain() {
  const LoadState before = loadState;
  std::string domain;
  loaded = LoadedLog();
  scan = std::make_unique<LogScan>();
  const bool isRead = scan->open(hardened) == LogScan::Opened::Yes &&
                      getHeader(scan->text(), domain) && loadLines(*scan, loaded);
  loadState = before;
  return isRead;
}

// Prepares an existing log for appending. Each step relies on the one before: the log is read to
// its end, that end is cut to what can be trusted, the index is cut to match, then the last line is
// mended, then the modes, capabilities and lines of accounts that a killed run left undone are made
// up for.
bool PrivateLog::continueLog() {
  bool isRead = loadState == LoadState::Loaded;
  if (!isRead && !readAgain())
    return false;
  bool hasNewLine = false;
  const uint64_t end = scan->end().textEnd;
  if (!completePreparedAccount(file, scan->end(), scan->isInsideName(end), hasNewLine) ||
      (hasNewLine && !readAgain()))
    return false;
  std::optional<PrivateLogRecord> completed;
  if (!file.setEnd(scan->end().contentEnd) || !openIndex())
    return false;
  // Cut capabilities are found before anything is mended, because mending changes the ctime of the
  // files.
  const std::vector<CutCapability> cut = findCutCapabilities();
  if (!mendTornTail(file, index, *scan, completed))
    return false;
  if (completed)
    enterCompleted(*completed);
  for (const HeldMode& held : loaded.heldModes)
    mendHeldMode(held);
  mend(cut);
  return recordMadeUpdates();
}

// Without `hardened` the scan has not read the index. The run still continues the index, so the
// whole index is read here: its records vouch for the existing lines.
bool PrivateLog::openIndex() {
  if (hardened)
    return index.open(*scan);
  LogScan vouched;
  std::string domain;
  const bool isUsable =
      vouched.open(true) == LogScan::Opened::Yes && getHeader(vouched.text(), domain);
  while (isUsable && vouched.next() != nullptr) {
  }
  return index.open(isUsable ? vouched : *scan);
}

// Enters a torn change that was completed. Its path points into the tail.
void PrivateLog::enterCompleted(const PrivateLogRecord& record) {
  ScannedLine line;
  line.record = record;
  line.vouched = scan->end().tailRecord;
  const auto inTail = static_cast<uint64_t>(record.path.data() - scan->end().tail.data());
  loaded.table.insert({loaded.keyOf(line), line.vouched ? line.vouched->line.birth : 0,
                       record.oldIds, record.newIds, scan->end().tailOffset + inTail,
                       static_cast<uint32_t>(record.path.size()), 0});
}

bool PrivateLog::sync() {
  const bool isIndexSafe = index.sync();
  int error = errno;
  const bool isLogSafe = file.sync();
  error = isIndexSafe ? errno : error;
  const bool areChangesSafe = changedDevices.sync();
  if (!isIndexSafe || !isLogSafe)
    errno = error;
  return isIndexSafe && isLogSafe && areChangesSafe;
}

// The index is synced first: after a power cut a record without a line is harmless, but a line
// without a record is ignored.
void PrivateLog::syncIfDueAt(int64_t second) {
  if (file.isSyncDue(second) && file.isOpen()) {
    index.sync();
    file.sync();
  }
}

void PrivateLog::syncIfDue() {
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  syncIfDueAt(now.tv_sec);
}

// A commit syncs the log before the changed file systems. An undo syncs the restored owners before
// the marks of their lines: a power cut in between must not lose a line that is still to be undone.
bool PrivateLog::close() {
  dateLinePending = false;
  int error = 0;
  const auto note = [&error](bool isSafe) {
    if (!isSafe && error == 0)
      error = errno;
  };
  if (isUndoing)
    note(changedDevices.sync());
  note(index.sync());
  note(file.close());
  note(changedDevices.sync());
  if (error == 0)
    index.setSectionSynced();  // when the disk is full, the section stays open
  note(index.close());
  errno = error;
  return error == 0;
}

void PrivateLog::release() {
  close();
  if (former.isKept() && !hasRecorded && !former.putBack())
    ORVS_LOG(getLogger("cli.idshift", false), 3, "private_log", "cannot put %s back: %s",
             paths::kPrivateLog, strerror(errno));
  former.leave();
  runLock.drop();
}
