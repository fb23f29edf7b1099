// How the walk finds its way back. When a directory is done, the walk has to continue in a
// directory further up. Changing there by its full path costs a lookup of every component and fails
// where the path is longer than PATH_MAX. A descriptor for each level would do, but a tree can be
// deeper than the number of descriptors that a process may have.
//
// So only the nearest levels keep a descriptor, which covers nearly all steps of a real tree. From
// deeper ones the walk climbs by "..", many levels in one call. Somebody may have moved a directory
// meanwhile, and ".." then leads elsewhere: so the directory that is reached must be the inode that
// was left, or the level is lost and the rest of it is skipped. Behind a symbolic link ".." leads
// to the parent of the target, and there the full path is the only way.
//
// Often several levels end at once. So the current directory stays where it is until a name is
// needed that no descriptor can open.

#include "walk/levels.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "entry/pinned_path.h"
#include "services/path_text.h"

void Levels::enter(DevInode self, bool wasSymlink) {
  levelsBack = 0;
  returnsByPath = false;
  levels.push_back({.self = self,
                    .wasSymlink = wasSymlink,
                    .lost = false,
                    .pendingBegin = pending.size(),
                    .fd = {}});
}

// A part of the limit of the process, which leaves room for pins and other descriptors.
size_t Levels::mostToHold() {
  constexpr size_t kMost = 32;
  rlimit descriptors = {};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  return std::min<size_t>(kMost, descriptors.rlim_cur / kMost);
}

void Levels::hold(UniqueFd fd) {
  if (mostHeld == 0 || !hasNext())
    return;
  if (levels.size() > mostHeld)
    levels[levels.size() - 1 - mostHeld].fd.reset();
  levels.back().fd = std::move(fd);
}

PendingDir Levels::takeNext() {
  PendingDir next = std::move(pending.back());
  pending.pop_back();
  return next;
}

OpenedDirectory Levels::open(const PendingDir& next, const char* name) {
  Level& above = levels.back();
  if (above.lost) {
    errno = ENOENT;
    return {};
  }
  const int from = above.fd && !next.wasSymlink ? above.fd.get() : AT_FDCWD;
  OpenedDirectory opened =
      openDirectory(from, name, next.wasSymlink, DevInode{next.device, next.inode});
  if (!hasNext())
    above.fd.reset();
  return opened;
}

void Levels::leave() {
  const Level left = std::move(levels.back());
  levels.pop_back();
  pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(left.pendingBegin), pending.end());
  ++levelsBack;
  // ".." of a directory that was reached through a link does not lead back to where the walk came
  // from, so the way back is the absolute path.
  returnsByPath = returnsByPath || left.wasSymlink || left.lost;
}

bool Levels::goBack(const std::string& path, int topParent) {
  if (levelsBack == 0)
    return true;
  const bool arrived = levels.empty() ? fchdir(topParent) == 0 : changeTo(path);
  levelsBack = 0;
  returnsByPath = false;
  if (!arrived && !levels.empty())
    levels.back().lost = true;
  return arrived;
}

bool Levels::changeTo(const std::string& path) {
  const Level& level = levels.back();
  if (level.fd)
    return fchdir(level.fd.get()) == 0;
  return (returnsByPath ? changeDirectory(path) : goUp()) && isCurrentDirectory(level.self);
}

bool Levels::goUp() const {
  constexpr std::string_view kUp = "../../../../../../../../../../../../../../../../";
  constexpr size_t kMost = kUp.size() / 3;
  for (size_t left = levelsBack; left > 0;) {
    const size_t now = std::min(left, kMost);
    if (chdir(kUp.data() + 3 * (kMost - now)) != 0)
      return false;
    left -= now;
  }
  return true;
}

AheadOfWalk::Directories Levels::comingUp(size_t firstLevel,
                                          const std::string& path,
                                          const AheadOfWalk& ahead) const {
  constexpr size_t kMost = 4096;
  constexpr size_t kMostBytes = size_t{1} << 20;
  AheadOfWalk::Directories next;
  if (path.size() >= PATH_MAX)
    return next;
  std::string place = path;
  size_t bytes = 0;
  size_t end = pending.size();
  for (size_t level = levels.size(); level-- > firstLevel;) {
    for (; end > levels[level].pendingBegin; --end) {
      const PendingDir& found = pending[end - 1];
      if (next.size() == kMost || bytes > kMostBytes)
        return next;
      if (found.wasSymlink || !ahead.takes(found.device))
        continue;
      next.push_back(
          {{found.device, found.inode}, (place.ends_with('/') ? place : place + '/') + found.name});
      bytes += next.back().path.size();
    }
    trimLastComponent(place);
  }
  return next;
}
