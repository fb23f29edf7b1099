#include "walk/descent.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

#include "entry/pinned_entry.h"

namespace {

bool isLink(int directory, const char* name) {
  struct stat status = {};
  return fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// True for the root of a mount that the open itself triggered: lstat() triggers no automount, an
// open does. Only root can move the root of a mount to another name, so a mount root is no
// exchanged directory.
bool isFreshMount(int fd, DevInode opened, DevInode expected) {
  struct statx extended = {};
  return opened.device != expected.device &&
         statx(fd, "", AT_EMPTY_PATH, STATX_TYPE, &extended) == 0 &&
         (extended.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// A link can be pointed at any mount root. So behind a link another mount root is accepted only
// when the pinned target was on an automounter's file system.
bool isOnAutomounter(const PinnedEntry& pinned) {
  struct statfs fileSystem = {};
  return fstatfs(pinned.descriptor(), &fileSystem) == 0 && fileSystem.f_type == AUTOFS_SUPER_MAGIC;
}

OpenedDirectory failure(Opening outcome, int reason) {
  OpenedDirectory directory;
  directory.outcome = outcome;
  errno = reason;
  return directory;
}

}  // namespace

OpenedDirectory openDirectory(int directory,
                              const char* name,
                              bool throughLink,
                              std::optional<DevInode> expected) {
  // Like stat(), a pin triggers no automount: it holds the inode that was looked at.
  PinnedEntry target;
  const bool isPinned = throughLink && expected && target.pin(name, true, *expected);
  OpenedDirectory found;
  const int follow = throughLink ? 0 : O_NOFOLLOW;
  found.fd.reset(openat(directory, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | follow));
  if (!found.fd || fstat(found.fd.get(), &found.status) != 0) {
    const int reason = errno;
    const bool exchanged =
        !throughLink && (reason == ENOTDIR || reason == ELOOP) && isLink(directory, name);
    return failure(exchanged ? Opening::Exchanged : Opening::Failed, reason);
  }
  const DevInode opened = idOf(found.status);
  if (expected && opened != *expected) {
    const bool mayBringUpMount = !throughLink || (isPinned && isOnAutomounter(target));
    if (!mayBringUpMount || !isFreshMount(found.fd.get(), opened, *expected))
      return failure(Opening::Exchanged, ESTALE);
  }
  found.outcome = Opening::Done;
  return found;
}

bool isCurrentDirectory(DevInode expected) {
  struct stat status = {};
  if (stat(".", &status) != 0)
    return false;
  if (idOf(status) == expected)
    return true;
  errno = ESTALE;
  return false;
}
