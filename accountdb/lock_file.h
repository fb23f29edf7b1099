// The lock of one account file: a file beside it, named with ".lock", that holds the owner's pid.
//
// Taken by the link method, which is atomic on every file system: a file named with the pid is
// linked to the lock name. No retries and no waits. The lock of a dead process is broken at once,
// a live one fails at once; a lock that names nobody is left alone. The content is the pid in
// decimal and a zero byte.
//
// A pid that is handed out again: what a process that died left behind under the pid of this one,
// a lock or the file named with the pid, is recognised as such and removed.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace orvs {

// Takes the lock of `path`. False when somebody else holds it or anything fails; then no file of
// this attempt stays behind.
bool takeLockFile(const std::string& path);

void dropLockFile(const std::string& path);

// The process that the content of a lock file names. Nothing when it names none (empty, zero, or
// not a number). Pure.
std::optional<pid_t> lockOwner(std::string_view content);

}  // namespace orvs
