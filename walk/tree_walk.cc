// The walk keeps its own stack of levels instead of the machine's: a tree may be deeper than that
// one can hold. One string carries the path, one buffer the names, one vector the directories still
// to be walked; each level knows where its own part of that vector begins.

#include "walk/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "entry/descriptor_batch.h"
#include "entry/pinned_entry.h"
#include "entry/pinned_path.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/left_undone.h"
#include "services/logger.h"
#include "services/path_text.h"
#include "services/progress.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"
#include "walk/ahead_of_walk.h"
#include "walk/descent.h"
#include "walk/mounts.h"
#include "walk/process_entry.h"
#include "walk/visited.h"

namespace {

// A directory that was found while its parent was read, and is not walked yet.
struct PendingDir {
  uint64_t device = 0;      // of the directory, st_dev
  uint64_t inode = 0;       // its st_ino: what must be found there when its turn comes
  bool wasSymlink = false;  // reached through a followed link
  std::string name;
};

// A directory between the top and the current one, both included.
struct Level {
  DevInode self;
  bool wasSymlink = false;
  bool lost = false;  // the way back to it failed: none of its names may be looked up any more
  size_t pendingBegin = 0;
  UniqueFd fd;  // while it is among the nearest, and a directory in it is still to be walked
};

// A directory that was named, as it was found before the walk.
struct Top {
  const std::string& path;
  UniqueFd parent;             // the directory that holds it
  std::optional<DevInode> id;  // what must be opened; nothing when it cannot be
  int error = 0;               // errno then
};

constexpr size_t kMostHeldLevels = 32;
constexpr int kMostRetries = 100;  // of a call that something else than a signal interrupted

enum class Entered { Yes, Skipped, Failed };

// The limit leaves room for pins, and for whatever else is open.
size_t mostToHold() {
  rlimit descriptors = {};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  return std::min<size_t>(kMostHeldLevels, descriptors.rlim_cur / 32);
}

class TreeWalk {
 public:
  TreeWalk(const Top& walkedTop, const CommandOptions& commandOptions, WalkVisitor* visitor);

  // Walks the top and everything below it. The current directory is the parent of the top.
  int ProcessFilesInDir(uint64_t topDevice);

 private:
  Entered enter(const PendingDir& next);
  OpenedDirectory open(const PendingDir& next);
  OpenedDirectory openTop(const char* name) const;
  void readDirectory(int fd);
  void takeEntry(const char* name);
  bool isLinkOfInterest(const EntryStatus& status, const char* name);
  PendingDir takeNext();
  void hold(UniqueFd fd);
  void leave();
  void restoreFullpath();
  bool goBack();
  bool goUp();
  size_t appendToPath(const char* name);
  void reportSkipped() const;
  void beginAhead();
  AheadOfWalk::Directories comingUp(size_t firstLevel) const;

  const Top& top;
  const CommandOptions& options;
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  NewOwners newOwners;
  WalkContext walk;
  DirectoryContext directory;  // the current one
  EntryProbe probe;
  std::string path;
  DescriptorBatch usedPins;
  bool changing = false;       // the entry before was changed
  size_t levelsBack = 0;       // how many levels the current directory lies below `path`
  bool returnsByPath = false;  // ".." does not lead from there to `path`
  const size_t mostHeldLevels = mostToHold();
  std::vector<Level> levels;
  std::vector<PendingDir> pending;  // a stack
  alignas(dirent64) std::array<char, 65536> names = {};
  AheadOfWalk ahead;  // the first to go
};

void reportNotOpened(const orvs::LoggerPtr& logger, const std::string& path) {
  TELL(Echo::Stderr, "Error: cannot opendir: %s: %s", path.c_str(), strerror(errno));
  left_undone::note();
}

// What somebody has removed meanwhile is not left undone.
void noteUnlessGone() {
  if (errno != ENOENT)
    left_undone::note();
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Somebody besides root can rename and exchange the entries. The mask of an ACL stands in the group
// bits.
bool canOthersWrite(const struct stat& directory) {
  return directory.st_uid != 0 || (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

TreeWalk::TreeWalk(const Top& walkedTop, const CommandOptions& commandOptions, WalkVisitor* visitor)
    : top(walkedTop),
      options(commandOptions),
      walk(walkContext(commandOptions, newOwners, visitor)),
      probe(!commandOptions.nfs, walk.isStrict),
      path(walkedTop.path),
      ahead(walkedTop.path) {}

int TreeWalk::ProcessFilesInDir(uint64_t topDevice) {
  const Entered entered = enter({.device = topDevice, .wasSymlink = true, .name = {}});
  if (entered != Entered::Yes)
    return entered == Entered::Failed ? kWalkFailed : 0;

  while (!levels.empty()) {
    if (pending.size() == levels.back().pendingBegin || interrupt::pending() != 0) {
      leave();
      continue;
    }
    enter(takeNext());  // a directory that cannot be entered does not stop its siblings
  }
  restoreFullpath();
  return 0;
}

// From the descriptor of its level where there is one: the current directory may stay deeper then.
PendingDir TreeWalk::takeNext() {
  if (!levels.back().fd || pending.back().wasSymlink)
    restoreFullpath();
  PendingDir next = std::move(pending.back());
  pending.pop_back();
  appendToPath(next.name.c_str());
  return next;
}

OpenedDirectory TreeWalk::open(const PendingDir& next) {
  const char* name = baseNameView(path).data();
  if (levels.empty())
    return openTop(name);
  Level& above = levels.back();
  if (above.lost) {
    errno = ENOENT;
    return {};
  }
  OpenedDirectory opened = openDirectory(above.fd && !next.wasSymlink ? above.fd.get() : AT_FDCWD,
                                         name, next.wasSymlink, DevInode{next.device, next.inode});
  if (pending.size() == above.pendingBegin)
    above.fd.reset();  // nothing else is to be opened from there
  return opened;
}

// A top that is exchanged while it is opened counts as one that cannot be opened.
OpenedDirectory TreeWalk::openTop(const char* name) const {
  OpenedDirectory opened;
  errno = top.error;
  if (top.id)
    opened = openDirectory(AT_FDCWD, name, true, top.id);
  if (opened.outcome == Opening::Exchanged)
    opened.outcome = Opening::Failed;
  return opened;
}

// `path` names the directory and loses that component again unless it is entered. Entering reads it
// to the end; its descriptor is kept only for what is to be walked in it.
Entered TreeWalk::enter(const PendingDir& next) {
  if (isExcluded(path)) {
    TELL(stderrIf(options.debug), "%s found in exclude list. Skipping.", path.c_str());
    trimLastComponent(path);
    return Entered::Skipped;
  }

  OpenedDirectory opened = open(next);
  if (opened.outcome == Opening::Failed) {
    reportNotOpened(logger, path);
    trimLastComponent(path);
    return Entered::Failed;
  }
  if (opened.outcome == Opening::Exchanged || fchdir(opened.fd.get()) != 0) {
    reportSkipped();
    trimLastComponent(path);
    return Entered::Skipped;
  }

  levelsBack = 0;
  returnsByPath = false;
  levels.push_back({.self = idOf(opened.status),
                    .wasSymlink = next.wasSymlink,
                    .pendingBegin = pending.size(),
                    .fd = {}});
  directory = {next.device, walk.preserveBits || canOthersWrite(opened.status)};
  privateLog.syncIfDue();
  progress::look(path, privateLog.changeCount);
  bool areHelpersBehind = false;
  if (ahead.isActive())
    areHelpersBehind = ahead.enter(path, levels.back().self);
  else if (levels.size() == 1 && ahead.beginsAtOnce())
    beginAhead();
  readDirectory(opened.fd.get());
  if (ahead.isActive())
    ahead.offer(comingUp(areHelpersBehind ? 0 : levels.size() - 1));
  usedPins.closeAll();
  if (pending.size() > levels.back().pendingBegin)
    hold(std::move(opened.fd));
  return Entered::Yes;
}

void TreeWalk::hold(UniqueFd fd) {
  if (mostHeldLevels == 0)
    return;
  if (levels.size() > mostHeldLevels)
    levels[levels.size() - 1 - mostHeldLevels].fd.reset();
  levels.back().fd = std::move(fd);
}

void TreeWalk::readDirectory(int fd) {
  int retries = 0;
  for (;;) {
    const ssize_t filled = getdents64(fd, names.data(), names.size());
    const bool isSignal = filled < 0 && errno == EINTR && interrupt::pending() != 0;
    // A user's file system may say so for ever.
    if (filled < 0 && errno == EINTR && !isSignal && ++retries <= kMostRetries)
      continue;
    if (filled < 0 && !isSignal)
      reportSkipped();  // the rest of the directory is not known
    if (filled <= 0)
      return;
    for (ssize_t offset = 0; offset < filled;) {
      if (interrupt::pending() != 0)
        return;
      const auto* entry = reinterpret_cast<const dirent64*>(names.data() + offset);
      offset += entry->d_reclen;
      privateLog.prefetch({directory.device, entry->d_ino});
      if (isDotOrDotDot(entry->d_name))
        continue;
      if (progress::countEntry()) {
        progress::look(path, privateLog.changeCount);
        if (ahead.watch())
          beginAhead();
      }
      takeEntry(entry->d_name);
    }
  }
}

void TreeWalk::takeEntry(const char* name) {
  EntryStatus status;
  PinnedEntry pinned;
  // Changes come in runs: after one, pin the next entry at once and stat the pin.
  PinnedEntry* const pinnedLook = changing && directory.mustPin ? &pinned : nullptr;
  EntryLook look = probe.look(name, status, pinnedLook);
  if (look == EntryLook::Link)
    look = isLinkOfInterest(status, name) && probe.isTargetRemote(name) ? EntryLook::Remote
                                                                        : EntryLook::Take;
  switch (look) {
    case EntryLook::Remote:
      TELL(stderrIf(options.traceSkips && options.traceExtra), "Skip dealing with NFS: Path=%s/%s",
           path.c_str(), name);
      return;
    case EntryLook::Unreadable:
      noteUnlessGone();
      TELL(Echo::Stderr, "Warning: skipping %s/%s: %s", path.c_str(), name, strerror(errno));
      return;
    case EntryLook::Link:
    case EntryLook::Take:
      break;
  }
  const bool isSymlink = S_ISLNK(status.mode);
  const size_t directoryLength = path.size();
  const size_t nameStart = appendToPath(name);
  const Processed entry =
      processEntry({path, path.c_str() + nameStart, status, pinned}, walk, directory, false);
  changing = entry.changed;
  if (entry.descend)
    pending.push_back({status.id.device, status.id.inode, isSymlink, name});
  path.resize(directoryLength);
  usedPins.add(pinned.release());
}

// Whether this link's target matters: the link would be changed, recorded or followed, or there
// would be a message about it.
bool TreeWalk::isLinkOfInterest(const EntryStatus& status, const char* name) {
  return options.follow || options.verbose || options.debug || options.traceSkips ||
         orvs::logEnabled(logger, 1) || newOwners.of(status.owner) ||
         privateLog.hasInode({status, path, name});
}

// Back to the level above, or from the top to its parent. The current directory follows when there
// is something to do there: often a whole row of levels is done with at once.
void TreeWalk::leave() {
  const Level left = std::move(levels.back());
  levels.pop_back();
  pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(left.pendingBegin), pending.end());
  trimLastComponent(path);
  ++levelsBack;
  // ".." of a directory that was reached through a link is not where the walk came from, so there
  // the way back is the absolute path.
  returnsByPath = returnsByPath || left.wasSymlink || left.lost;
}

// Brings the current directory back to `path`.
void TreeWalk::restoreFullpath() {
  if (levelsBack == 0)
    return;
  const bool arrived = levels.empty() ? fchdir(top.parent.get()) == 0 : goBack();
  levelsBack = 0;
  returnsByPath = false;
  if (arrived)
    return;
  reportSkipped();
  if (!levels.empty())
    levels.back().lost = true;
}

bool TreeWalk::goBack() {
  const Level& level = levels.back();
  if (level.fd)
    return fchdir(level.fd.get()) == 0;
  return (returnsByPath ? changeDirectory(path) : goUp()) && isCurrentDirectory(level.self);
}

bool TreeWalk::goUp() {
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

// Returns where in `path` the name stands.
size_t TreeWalk::appendToPath(const char* name) {
  if (path.empty() || path.back() != '/')
    path += '/';
  const size_t start = path.size();
  path += name;
  return start;
}

void TreeWalk::reportSkipped() const {
  noteUnlessGone();
  TELL(Echo::Stderr, "Warning: skipping %s: %s", path.c_str(), strerror(errno));
}

void TreeWalk::beginAhead() {
  if (!ahead.begin(top.parent.get(), levels.front().self))
    return;
  ahead.enter(path, levels.back().self);
  ahead.offer(comingUp(0));
}

// What was found from this level on and has not been entered, the next one first.
AheadOfWalk::Directories TreeWalk::comingUp(size_t firstLevel) const {
  constexpr size_t kMost = 4096;
  constexpr size_t kMostBytes = size_t{1} << 20;
  AheadOfWalk::Directories next;
  if (path.size() >= PATH_MAX)
    return next;
  std::string place = path;
  size_t bytes = 0;
  size_t end = pending.size();
  for (size_t level = levels.size(); level-- > firstLevel && next.size() < kMost;) {
    for (; end > levels[level].pendingBegin && next.size() < kMost && bytes < kMostBytes; --end) {
      const PendingDir& found = pending[end - 1];
      if (found.wasSymlink || !ahead.takes(found.device))
        continue;
      next.push_back(
          {{found.device, found.inode}, (place.ends_with('/') ? place : place + '/') + found.name});
      bytes += next.back().path.size();
    }
    end = levels[level].pendingBegin;
    trimLastComponent(place);
  }
  return next;
}

// The directory that holds `path`, with a slash at its end.
std::string parentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    throw std::out_of_range("basic_string::erase");
  return path.substr(0, slash + 1);
}

}  // namespace

int MapFilesInDir(const std::string& path,
                  uint64_t topDevice,
                  const CommandOptions& options,
                  WalkVisitor* visitor) {
  if (visitor != nullptr)
    visitor->beginTop(path);
  if (!options.nfs && isOnRemote(path.c_str())) {
    SAY(getLogger("cli.idshift", false), 1, "cli_idshift",
        stderrIf(options.traceSkips && options.traceExtra), "Skip dealing with NFS: Path=%s",
        path.c_str());
    return 0;
  }
  // A link that somebody besides root can put on the way must not make another tree of this one.
  PinnedPath parent = pinPath(parentOf(path), LastLink::Follow, ForeignLinks::Refuse);
  if (!parent.object || fchdir(parent.object.get()) != 0) {
    errno = parent.error;
    if (errno == ELOOP)
      reportNotOpened(getLogger("cli.idshift", false), path);
    return kWalkFailed;
  }
  const PinnedPath found = pinPath(path, LastLink::Follow, ForeignLinks::Refuse);
  Top top = {path, std::move(parent.object), std::nullopt, found.error};
  if (found.object)
    top.id = found.status.id;
  return TreeWalk(top, options, visitor).ProcessFilesInDir(topDevice);
}
