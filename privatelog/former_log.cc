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

bool isRecord(std::string_view line) {
  return !line.empty() && line.front() != kUndoneMark;
}

// rename() that never replaces. Some file systems lack the flag; a link does the same there.
bool renameToFreeName(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
    return true;
  return (errno == EINVAL || errno == ENOSYS) && link(from, to) == 0 && unlink(from) == 0;
}

}  // namespace

bool FormerLog::isWorthKeeping() {
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

bool FormerLog::keep() {
  const std::string first = std::string(paths::kPrivateLog) + ".old";
  std::string target = first;
  for (unsigned number = 1; !renameToFreeName(paths::kPrivateLog, target.c_str()); ++number) {
    if (errno != EEXIST)
      return false;
    target = first + "." + std::to_string(number);
  }
  name = target;
  return true;
}

bool FormerLog::putBack() {
  const bool isBack = rename(name.c_str(), paths::kPrivateLog) == 0;
  name.clear();
  return isBack;
}
