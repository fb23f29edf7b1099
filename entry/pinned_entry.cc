#include "entry/pinned_entry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace {

#ifdef SYS_fchmodat2
constexpr long kFchmodat2 = SYS_fchmodat2;
#else
constexpr long kFchmodat2 = 452;  // Linux 6.6; the same number on every architecture
#endif

}  // namespace

bool PinnedEntry::pin(const char* name, bool follow) {
  fd.reset(open(name, O_PATH | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW)));
  return fd && lookAt(fd.get(), seen);
}

bool PinnedEntry::pin(const char* name, bool follow, DevInode expected) {
  if (!pin(name, follow))
    return false;
  if (seen.id == expected)
    return true;
  errno = ESTALE;
  return false;
}

void PinnedEntry::adopt(UniqueFd opened, const EntryStatus& itsStatus) {
  fd = std::move(opened);
  seen = itsStatus;
}

bool PinnedEntry::changeOwner(OwnerIds ids) const {
  return fchownat(fd.get(), "", ids.uid, ids.gid, AT_EMPTY_PATH) == 0;
}

bool PinnedEntry::touch() const {
  struct statx now = {};
  if (statx(fd.get(), "", AT_EMPTY_PATH, STATX_ATIME, &now) != 0)
    return false;
  const timespec times[2] = {{now.stx_atime.tv_sec, now.stx_atime.tv_nsec}, {0, UTIME_OMIT}};
  return utimensat(fd.get(), "", times, AT_EMPTY_PATH) == 0;
}

// The time of modification is compared before the mode is set and again afterwards: a write between
// the first look and the chmod would otherwise leave its new content with set-id bits.
bool PinnedEntry::restoreMode() const {
  const mode_t written = S_ISREG(seen.mode) ? seen.mode & ~mode_t{S_ISUID | S_ISGID} : seen.mode;
  EntryStatus now;
  if (!lookAt(fd.get(), now))
    return false;
  if (now.modified != seen.modified)
    return changeMode(written);
  if (!changeMode(seen.mode) || !lookAt(fd.get(), now))
    return false;
  return now.modified == seen.modified || changeMode(written);
}

bool PinnedEntry::changeMode(mode_t mode) const {
  if (syscall(kFchmodat2, fd.get(), "", mode, AT_EMPTY_PATH) == 0)
    return true;
  if (errno != ENOSYS && errno != EPERM)  // EPERM: a system call filter that is older than the call
    return false;
  std::array<char, 32> link = {};
  snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd.get());
  return chmod(link.data(), mode) == 0;
}
