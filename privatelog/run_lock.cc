#include "privatelog/run_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "services/paths.h"

namespace {

constexpr mode_t kLockMode = 0600;

// Checks the file, and sets its mode again after a umask or somebody's chmod.
bool keepToRoot(int fd) {
  struct stat status = {};
  if (fstat(fd, &status) != 0)
    return false;
  if (!S_ISREG(status.st_mode) || status.st_nlink != 1 ||
      (status.st_uid != 0 && status.st_uid != geteuid())) {
    errno = EPERM;
    return false;
  }
  return (status.st_mode & ALLPERMS) == kLockMode || fchmod(fd, kLockMode) == 0;
}

}  // namespace

bool RunLock::take() {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  UniqueFd opened(open(paths::kRunLock, kFlags, kLockMode));
  if (!opened || !keepToRoot(opened.get()) || flock(opened.get(), LOCK_EX | LOCK_NB) != 0)
    return false;
  file = std::move(opened);
  return true;
}
