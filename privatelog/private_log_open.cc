#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "privatelog/private_log.h"
#include "services/logger.h"
#include "services/paths.h"

namespace {

bool isSameState(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The message of the caller names no reason, so the log gets it. `error` is an errno or 0. False.
bool refuse(const char* what, const char* path, int error) {
  ORVS_LOG(getLogger("cli.idshift", false), 3, "private_log",
           "the private log is not opened for writing: %s%s%s%s", what, path,
           error != 0 ? ": " : "", error != 0 ? strerror(error) : "");
  return false;
}

}  // namespace

bool PrivateLog::openPrivateLog(bool append) {
  readSettings();
  dateLinePending = isLineOpen = isUndoing = hasRecorded = false;
  lastRangeEnd = lastRememberedEnd = 0;
  if (!runLock.take()) {
    const int error = errno;
    return refuse(error == EWOULDBLOCK ? "another run holds " : "cannot lock ", paths::kRunLock,
                  error);
  }
  if (openLocked(append)) {
    dateLinePending = true;
    return true;
  }
  file.close();
  release();
  return false;
}

bool PrivateLog::openLocked(bool append) {
  if (!file.open(paths::kPrivateLog))
    return refuse(errno == EPERM ? "others than root can change " : "cannot open ",
                  paths::kPrivateLog, errno);
  if (loadState == LoadState::Unreadable)
    return refuse("its records cannot be read: ", paths::kPrivateLog, 0);
  if (!isUnchangedSinceLoad())
    return refuse("another run has just changed ", paths::kPrivateLog, 0);
  if (!(append ? continueLog() : startAfresh()))
    return refuse(append ? "cannot continue " : "cannot begin ", paths::kPrivateLog, errno);
  return true;
}

// Another run may have come and gone between the load and the lock. A mapped write leaves size and
// time as they are, but not the byte behind the end.
bool PrivateLog::isUnchangedSinceLoad() const {
  struct stat now = {};
  if (fstat(file.descriptor(), &now) != 0)
    return false;
  switch (loadState) {
    case LoadState::NotLoaded:
      return true;
    case LoadState::Absent:
      return now.st_size == 0;
    case LoadState::Unreadable:
      return false;
    case LoadState::Loaded:
      break;
  }
  char behind = '\0';
  const bool isReadable =
      pread(file.descriptor(), &behind, 1, static_cast<off_t>(seenEnd.contentEnd)) >= 0;
  return isSameState(now, seen) && isReadable && (behind == '\0' || seenEnd.contentEnd == 0);
}

bool PrivateLog::startAfresh() {
  // The domain comes first: without it the old log stays.
  std::string domain;
  if (!getCurrentDomain(domain))
    return false;
  changeTable = ChangeTable();
  if (FormerLog::isWorthKeeping() && !(former.keep() && file.open(paths::kPrivateLog)))
    return false;
  // In this order: ranges without content do no harm, content without ranges would.
  if (!file.setEnd(0) || !lineFeedRanges.clear(file.descriptor()))
    return false;
  writtenLine.clear();
  appendHeaderLine(writtenLine, domain);
  return file.append(writtenLine);
}

bool PrivateLog::continueLog() {
  if (loadState == LoadState::NotLoaded) {
    LogReader reader;
    if (!reader.open(paths::kPrivateLog))
      return false;
    while (reader.next()) {
    }
    if (reader.error() != 0)
      return false;
    noteEndOf(reader);
  }
  const bool hasRanges = lineFeedRanges.load(file.descriptor());
  // A range behind the end is of a record that never came to be. Its path may read like a prepared
  // account; and what is written there next must not fall under the range.
  const bool isPath = hardened && lineFeedRanges.contains(seenEnd.contentEnd);
  const bool isTrimmed = hasRanges && lineFeedRanges.trim(file.descriptor(), seenEnd.contentEnd);
  LogRecovery recovery(file, hardened ? &lineFeedRanges : nullptr, seenEnd);
  if ((!isTrimmed && hardened) || !recovery.run(isPath))
    return false;
  if (!recovery.newDateLine().empty())
    lastDateLine = recovery.newDateLine();
  if (recovery.completedChange() && loadState == LoadState::Loaded)
    enter(*recovery.completedChange(), {seenEnd.tailOffset, seenEnd.tail});
  return true;
}

// ---- The end of a run

bool PrivateLog::sync() {
  const bool isLogSafe = file.sync();
  const int error = errno;
  const bool areChangesSafe = changedDevices.sync();
  if (!isLogSafe)
    errno = error;
  return isLogSafe && areChangesSafe;
}

// A record goes to the disk ahead of its change, the mark of an undone line behind the restored
// owner: a power cut in between must not lose what is still to be undone.
bool PrivateLog::close() {
  dateLinePending = false;
  int error = 0;
  const auto note = [&error](bool isSafe) {
    if (!isSafe && error == 0)
      error = errno;
  };
  if (isUndoing)
    note(changedDevices.sync());
  note(file.close());
  note(changedDevices.sync());
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
