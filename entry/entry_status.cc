#include "entry/entry_status.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

namespace {

constexpr int64_t kNanoseconds = 1'000'000'000;

int64_t nanosecondsOf(const statx_timestamp& time) {
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

bool look(int directory, const char* name, int flags, EntryStatus& status) {
  struct statx seen;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled by the call
  if (statx(directory, name, flags | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME, &seen) != 0)
    return false;
  status.id = {makedev(seen.stx_dev_major, seen.stx_dev_minor), seen.stx_ino};
  status.owner = {seen.stx_uid, seen.stx_gid};
  status.mode = seen.stx_mode;
  status.links = seen.stx_nlink;
  status.birth = (seen.stx_mask & STATX_BTIME) != 0 ? nanosecondsOf(seen.stx_btime) : 0;
  status.modified = nanosecondsOf(seen.stx_mtime);
  status.changed = nanosecondsOf(seen.stx_ctime);
  return true;
}

}  // namespace

bool lookAt(const char* name, bool follow, EntryStatus& status) {
  return look(AT_FDCWD, name, follow ? 0 : AT_SYMLINK_NOFOLLOW, status);
}

bool lookAt(int descriptor, EntryStatus& status) {
  return look(descriptor, "", AT_EMPTY_PATH, status);
}
