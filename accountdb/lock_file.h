// The lock of one account file: a file beside it, named with ".lock", that holds the owner's pid in
// decimal and a zero byte.
//
// A file named with the pid is linked to the lock's name, because a link is atomic on every file
// system. Nothing waits. The lock of a dead process is broken and taken. The lock of a living
// process makes the call fail, and so does a lock that names no process.
//
// Pids are used again. A lock, or a file named with the pid, that a dead process with the pid of
// this one has left is recognised and removed.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace orvs {

// Takes the lock of `path`. False when somebody else holds it or anything fails; then this call
// leaves no file behind.
bool takeLockFile(const std::string& path);

void dropLockFile(const std::string& path);

// The pid in the content of a lock file. Nothing for an empty content, for 0, and for a text
// without a number. Pure.
std::optional<pid_t> lockOwner(std::string_view content);

}  // namespace orvs
