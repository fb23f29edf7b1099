#include "entry/pinned_path.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "entry/file_ids.h"

namespace {

constexpr int kMostLinks = 40;  // as many as the kernel follows in one path

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;  // the mask of an ACL stands in the group bits

UniqueFd openPath(int directory, const char* name, int extraFlags) {
  return UniqueFd(openat(directory, name, O_PATH | O_CLOEXEC | extraFlags));
}

// Whether root alone can change the names that lead to this directory: climbs to the root.
bool rootAloneAbove(int directory) {
  UniqueFd below;
  struct stat entry {};
  if (fstat(directory, &entry) != 0)
    return false;
  for (;;) {
    UniqueFd parent = openPath(below ? below.get() : directory, "..", O_DIRECTORY);
    struct stat status {};
    if (!parent || fstat(parent.get(), &status) != 0)
      return false;
    if (idOf(status) == idOf(entry))
      return true;
    if (!rootAloneChanges(status, entry))
      return false;
    entry = status;
    below = std::move(parent);
  }
}

// The state of one resolution: the directory reached so far, and the part of the path that is left.
// The kernel would resolve the whole path in one call, but then no link on the way could be judged.
// So each component is opened by itself with O_NOFOLLOW, and the text of a link replaces that
// component in the rest of the path, as the kernel does it.
class PathWalk {
 public:
  PathWalk(std::string_view path, LastLink lastLink, ForeignLinks foreignLinks)
      : rest(path), followLast(lastLink == LastLink::Follow), foreignRule(foreignLinks) {}

  PinnedPath run() {
    if (rest.empty() || !restart())
      return failed(rest.empty() ? ENOENT : errno);
    result.rootAlone = rest.starts_with('/') ||
                       (foreignRule == ForeignLinks::Refuse && rootAloneAbove(current.get()));
    while (takeComponent())
      if (!step())
        return failed(errno);
    if (!result.object)
      result.object = std::move(current);  // the path is "/" or ends at a directory
    if (!lookAt(result.object.get(), result.status))
      return failed(errno);
    return std::move(result);
  }

 private:
  PinnedPath failed(int error) {
    result.object.reset();
    result.error = error;
    result.stoppedAt = std::move(current);
    return std::move(result);
  }

  // Opens the directory at which `rest` begins: the root or the current directory.
  bool restart() {
    current = openPath(AT_FDCWD, rest.starts_with('/') ? "/" : ".", O_DIRECTORY);
    return static_cast<bool>(current);
  }

  // Cuts the next component off `rest`; false when nothing is left.
  bool takeComponent() {
    const size_t begin = rest.find_first_not_of('/', position);
    if (begin == std::string::npos)
      return false;
    const size_t end = std::min(rest.find('/', begin), rest.size());
    component.assign(rest, begin, end - begin);
    position = end;
    isLast = rest.find_first_not_of('/', end) == std::string::npos;
    wantsDirectory = end < rest.size();  // "name/" follows a link and must be a directory
    return true;
  }

  bool step() {
    struct stat directory {};
    struct stat entry {};
    if (fstat(current.get(), &directory) != 0)
      return false;
    UniqueFd found = openComponent();
    const int openError = errno;
    if (!found || fstat(found.get(), &entry) != 0) {
      const int error = found ? errno : openError;
      if (isLast && !wantsDirectory)
        noteLast();
      if (found)
        current = std::move(found);
      errno = error;
      return false;
    }
    const bool isForeign = isForeignLink(directory, entry);
    if (!rootAloneChanges(directory, entry))
      result.rootAlone = false;
    if (!S_ISLNK(entry.st_mode) || (!wantsDirectory && !followLast))
      return enter(std::move(found), entry);
    result.foreignLink = result.foreignLink || isForeign;
    if (foreignRule == ForeignLinks::Refuse && isForeign) {
      errno = ELOOP;
      return false;
    }
    return followLink(std::move(found));
  }

  // Where a directory is wanted, opens it with O_DIRECTORY first, because that triggers an
  // automount.
  UniqueFd openComponent() {
    UniqueFd found;
    if (wantsDirectory)
      found = openPath(current.get(), component.c_str(), O_NOFOLLOW | O_DIRECTORY);
    return found ? std::move(found) : openPath(current.get(), component.c_str(), O_NOFOLLOW);
  }

  // REQUIRES: result.rootAlone covers the way to `directory` and does not cover `link` yet.
  bool isForeignLink(const struct stat& directory, const struct stat& link) const {
    const bool ownSticky =
        directory.st_uid == 0 && (directory.st_mode & S_ISVTX) != 0 && link.st_uid == 0;
    const bool safe = result.rootAlone && (ownSticky || rootAloneChanges(directory, link));
    return !safe && (geteuid() == 0 || link.st_uid != geteuid());
  }

  bool enter(UniqueFd found, const struct stat& entry) {
    if (wantsDirectory && !S_ISDIR(entry.st_mode)) {
      errno = ENOTDIR;
      return false;
    }
    if (isLast) {
      noteLast();
      result.object = std::move(found);
    } else {
      current = std::move(found);
    }
    return true;
  }

  bool followLink(UniqueFd link) {
    if (++links > kMostLinks) {
      errno = ELOOP;
      return false;
    }
    struct statfs fileSystem {};
    if (fstatfs(link.get(), &fileSystem) == 0 && fileSystem.f_type == PROC_SUPER_MAGIC)
      return followMagicLink();
    char text[PATH_MAX];
    const ssize_t length = readlinkat(link.get(), "", text, sizeof text);
    if (length <= 0) {
      errno = length == 0 ? ENOENT : errno;
      return false;
    }
    rest.replace(0, position, text, static_cast<size_t>(length));
    position = 0;
    return !rest.starts_with('/') || restart();
  }

  // Links such as /proc/self/fd/1 can lead to files that have no path; only the kernel can follow
  // them.
  bool followMagicLink() {
    result.rootAlone = false;
    UniqueFd target = openPath(current.get(), component.c_str(), 0);
    struct stat entry {};
    if (!target || fstat(target.get(), &entry) != 0)
      return false;
    return enter(std::move(target), entry);
  }

  void noteLast() {
    result.directory = UniqueFd(fcntl(current.get(), F_DUPFD_CLOEXEC, 0));
    result.lastName = component;
  }

  std::string rest;  // what is still to be walked begins at `position`
  size_t position = 0;
  std::string component;
  bool isLast = false;
  bool wantsDirectory = false;
  bool followLast;
  ForeignLinks foreignRule;
  int links = 0;
  UniqueFd current;
  PinnedPath result;
};

// Opens the path in pieces; each piece ends at a slash and is short enough for one call.
UniqueFd openDirectoryPath(const std::string& path) {
  UniqueFd directory;
  size_t begin = 0;
  while (path.size() - begin >= PATH_MAX) {
    const size_t slash = path.rfind('/', begin + PATH_MAX - 2);
    if (slash == std::string::npos || slash < begin) {
      errno = ENAMETOOLONG;
      return {};
    }
    const std::string piece = path.substr(begin, slash + 1 - begin);
    UniqueFd next = openPath(directory ? directory.get() : AT_FDCWD, piece.c_str(), O_DIRECTORY);
    if (!next)
      return {};
    directory = std::move(next);
    begin = std::min(path.find_first_not_of('/', slash), path.size());
  }
  if (directory && begin == path.size())
    return directory;
  return openPath(directory ? directory.get() : AT_FDCWD, path.c_str() + begin, O_DIRECTORY);
}

}  // namespace

PinnedPath pinPath(std::string_view path, LastLink lastLink, ForeignLinks foreignLinks) {
  return PathWalk(path, lastLink, foreignLinks).run();
}

bool changeDirectory(const std::string& path) {
  if (path.size() < PATH_MAX)
    return chdir(path.c_str()) == 0;
  const UniqueFd directory = openDirectoryPath(path);
  return directory && fchdir(directory.get()) == 0;
}

bool othersMayWrite(const struct stat& directory) {
  return (directory.st_mode & kOthersWrite) != 0 ||
         (directory.st_uid != 0 && directory.st_uid != geteuid());
}

bool mayBePlanted(const struct stat& directory, uid_t owner) {
  const bool isOpenAndSticky =
      (directory.st_mode & S_ISVTX) != 0 && (directory.st_mode & S_IWOTH) != 0;
  return isOpenAndSticky && owner != geteuid() && owner != directory.st_uid;
}

bool rootAloneChanges(const struct stat& directory, const struct stat& entry) {
  if (directory.st_uid != 0)
    return false;
  if ((directory.st_mode & kOthersWrite) == 0)
    return true;
  return (directory.st_mode & S_ISVTX) != 0 && S_ISDIR(entry.st_mode) && entry.st_uid == 0 &&
         (entry.st_mode & kOthersWrite) == 0;
}
