#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "entry/pinned_entry.h"
#include "privatelog/prepared_account.h"
#include "privatelog/private_log.h"
#include "privatelog/torn_tail.h"
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

std::optional<EntryOnDisk> PrivateLog::findEntry(const TornChange& torn) {
  struct stat status = {};
  if (!torn.record.path.starts_with('/') ||
      !findStatus(std::string(torn.record.path), torn.followed, status))
    return std::nullopt;
  return EntryOnDisk{idOf(status), ownerOf(status)};
}

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
      pread(file.descriptor(), &behind, 1, static_cast<off_t>(seen.contentEnd)) >= 0;
  return isSameState(now, seen.status) && isReadable && (behind == '\0' || seen.contentEnd == 0);
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
  const bool isPath = hardened && lineFeedRanges.contains(seen.contentEnd);
  const bool isTrimmed = hasRanges && lineFeedRanges.trim(file.descriptor(), seen.contentEnd);
  return (isTrimmed || !hardened) && (isPath || completePrepared()) &&
         file.setEnd(seen.contentEnd) && mendTornTail();
}

// What stands behind the NUL that ends the content; longer than any account record.
std::string PrivateLog::readPrepared() const {
  std::string text(4096, '\0');
  const ssize_t length =
      pread(file.descriptor(), text.data(), text.size(), static_cast<off_t>(seen.contentEnd + 1));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

// One byte makes the record good where it stands, so that a kill here loses nothing either. Behind
// a record that was left open it would be no line of its own.
bool PrivateLog::completePrepared() {
  const auto prepared = parsePreparedAccount(readPrepared());
  if (!prepared || !seen.tail.empty() || !isAccountUpdated(prepared->line))
    return true;
  if (!file.overwrite(seen.contentEnd, prepared->text.front()))
    return false;
  seen.contentEnd += prepared->text.size();
  if (prepared->text.starts_with('!'))  // a section of its own, which is the newest now
    lastDateLine = prepared->text.substr(0, prepared->text.find('\n'));
  return true;
}

bool PrivateLog::mendTornTail() {
  const auto torn = parseTornChange(seen.tail);
  const auto onDisk = torn ? findEntry(*torn) : std::nullopt;
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const TailPlace place = {hardened && lineFeedRanges.contains(seen.tailOffset),
                           seen.contentEnd % pageSize == 0};
  switch (judgeTornTail(seen.tail, onDisk, place)) {
    case TailVerdict::Leave:
      return true;
    case TailVerdict::EndLine:
      return file.append("\n");
    case TailVerdict::CommentOut:
      return file.overwrite(seen.tailOffset, kUndoneMark) && file.append("\n");
    case TailVerdict::CompleteChange:
      break;
  }
  PrivateLogRecord completed = torn->record;
  completed.newIds = onDisk->ids;
  writtenLine.clear();
  appendChangeEnd(writtenLine, completed.newIds);
  if (!file.append(writtenLine))
    return false;
  if (loadState == LoadState::Loaded)
    enter(completed, {seen.tailOffset, seen.tail});
  return true;
}

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
