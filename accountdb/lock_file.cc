#include "accountdb/lock_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "services/unique_fd.h"

namespace orvs {
namespace {

constexpr std::size_t kPidTextSize = 32;

// The paths whose locks this process holds.
std::set<std::string>& heldLocks() {
  static std::set<std::string> paths;
  return paths;
}

std::string lockName(const std::string& path) {
  return path + ".lock";
}

// Creates `name` with this process's pid and a zero byte in it. Leaves nothing behind on failure.
// The file is synced before it becomes a lock, because a power cut could otherwise leave an empty
// lock. An empty lock names no process and is never broken.
bool createPidFile(const std::string& name) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd file(::open(name.c_str(), kFlags, 0600));
  // Only a process of this pid makes a file of this name, so its maker is dead.
  if (!file && errno == EEXIST && ::unlink(name.c_str()) == 0)
    file.reset(::open(name.c_str(), kFlags, 0600));
  if (!file)
    return false;
  std::array<char, kPidTextSize> text = {};
  std::snprintf(text.data(), text.size(), "%ld", static_cast<long>(::getpid()));
  const std::size_t length = std::strlen(text.data()) + 1;
  if (::write(file.get(), text.data(), length) == static_cast<ssize_t>(length) &&
      ::fsync(file.get()) == 0)
    return true;
  static_cast<void>(::unlink(name.c_str()));
  return false;
}

enum class LinkResult { Taken, Refused, Lost };

// Links the pid file to the lock's name. The link counts only if the pid file has two links then. A
// link that does not count is removed, because nobody else would remove it.
LinkResult linkToLock(const std::string& pidFile, const std::string& lock) {
  if (::link(pidFile.c_str(), lock.c_str()) != 0)
    return LinkResult::Refused;
  struct stat info = {};
  if (::stat(pidFile.c_str(), &info) == 0 && info.st_nlink == 2)
    return LinkResult::Taken;
  static_cast<void>(::unlink(lock.c_str()));
  return LinkResult::Lost;
}

std::optional<pid_t> readLockOwner(const std::string& lock) {
  const UniqueFd file(::open(lock.c_str(), O_RDWR | O_CLOEXEC));
  if (!file)
    return std::nullopt;
  std::array<char, kPidTextSize> text = {};
  const ssize_t length = ::read(file.get(), text.data(), text.size() - 1);
  if (length <= 0)
    return std::nullopt;
  return lockOwner({text.data(), static_cast<std::size_t>(length)});
}

// A lock with this process's own pid is that of a dead process, unless this process has taken it.
bool isAlive(pid_t owner, const std::string& path) {
  if (owner == ::getpid())
    return heldLocks().contains(path);
  // Required: any failure of kill() counts as a dead owner, EPERM included. Only root writes
  // account files, and root may signal everybody.
  return ::kill(owner, 0) == 0;
}

// Removes the lock if its owner is dead.
bool breakStaleLock(const std::string& path) {
  const std::string lock = lockName(path);
  const std::optional<pid_t> owner = readLockOwner(lock);
  return owner && !isAlive(*owner, path) && ::unlink(lock.c_str()) == 0;
}

}  // namespace

std::optional<pid_t> lockOwner(std::string_view content) {
  const long number = std::strtol(std::string(content).c_str(), nullptr, 10);
  if (number == 0)
    return std::nullopt;
  return static_cast<pid_t>(number);
}

// The lock's name appears with its content complete, because the pid file is filled before it is
// linked. After a stale lock was broken the link is tried once more; if another process was faster,
// this call fails.
bool takeLockFile(const std::string& path) {
  const std::string pidFile = path + '.' + std::to_string(::getpid());
  const std::string lock = lockName(path);
  if (!createPidFile(pidFile))
    return false;
  LinkResult result = linkToLock(pidFile, lock);
  if (result == LinkResult::Refused && breakStaleLock(path))
    result = linkToLock(pidFile, lock);
  static_cast<void>(::unlink(pidFile.c_str()));
  if (result == LinkResult::Taken)
    heldLocks().insert(path);
  return result == LinkResult::Taken;
}

void dropLockFile(const std::string& path) {
  heldLocks().erase(path);
  static_cast<void>(::unlink(lockName(path).c_str()));
}

}  // namespace orvs
