#include "privatelog/former_log.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "privatelog/log_line.h"
#include "privatelog/log_reader.h"
#include "services/paths.h"

namespace {

// The name of the former log with this number, from 0.
std::string formerName(unsigned number) {
  const std::string first = std::string(paths::kPrivateLog) + ".old";
  return number == 0 ? first : first + "." + std::to_string(number);
}

std::string indexOf(const std::string& log) {
  return log + ".index";
}

bool isThere(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isRecord(std::string_view line) {
  return !line.empty() && line.front() != kUndoneMark;
}

// True also when the log cannot be read.
bool isWorthKeeping() {
  LogReader reader;
  if (!reader.open(paths::kPrivateLog))
    return errno != ENOENT;
  if (reader.status().st_size == 0)
    return false;
  bool isFirst = true;
  while (const auto line = reader.next()) {
    const bool isHeader = isFirst && parseHeaderLine(line->text);
    isFirst = false;
    if (!isHeader && isRecord(line->text))
      return true;
  }
  return reader.error() != 0 || isRecord(reader.tail().text);
}

// rename() that never replaces a file. Some file systems lack RENAME_NOREPLACE; there link() and
// unlink() do the same.
bool renameToFreeName(const char* from, const std::string& to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
    return true;
  return (errno == EINVAL || errno == ENOSYS) && link(from, to.c_str()) == 0 && unlink(from) == 0;
}

bool isGone(int result) {
  return result == 0 || errno == ENOENT;
}

// The name of the last former log that has no index because a run was killed; empty when all have
// one.
std::string formerWithoutIndex() {
  std::string found;
  for (unsigned number = 0; isThere(formerName(number)); ++number) {
    if (!isThere(indexOf(formerName(number))))
      found = formerName(number);
  }
  return found;
}

}  // namespace

bool FormerLog::clearTheWay(bool logWasThere) {
  if (isWorthKeeping())
    return keep();
  if (!isThere(paths::kPrivateLogIndex))
    return true;
  const std::string former = logWasThere ? std::string() : formerWithoutIndex();
  return former.empty() ? isGone(unlink(paths::kPrivateLogIndex))
                        : renameToFreeName(paths::kPrivateLogIndex, indexOf(former));
}

bool FormerLog::keep() {
  for (unsigned number = 0;; ++number) {
    const std::string free = formerName(number);
    if (isThere(indexOf(free)))
      continue;
    if (renameToFreeName(paths::kPrivateLog, free)) {
      name = free;
      return isGone(rename(paths::kPrivateLogIndex, indexOf(name).c_str()));
    }
    if (errno != EEXIST)
      return false;
  }
}

bool FormerLog::putBack() {
  const std::string former = name;
  name.clear();
  return isGone(unlink(paths::kPrivateLog)) &&
         isGone(rename(indexOf(former).c_str(), paths::kPrivateLogIndex)) &&
         rename(former.c_str(), paths::kPrivateLog) == 0;
}
