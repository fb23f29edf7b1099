// How the walk descends. A recursive function would read some names, enter a subdirectory, and read
// on when it comes back. Two things forbid that: a tree can be deeper than the call stack, and
// every open directory costs a descriptor. So the walk reads a directory to its end first, deals
// with each entry as it comes, and only notes the subdirectories (levels.h). Then it enters the one
// that it noted last. The price is the memory for the names of the noted directories, the gain is
// one buffer for all listings.
//
// Between the note and the descent somebody may put another directory or a link under the name.
// Therefore the inode is noted as well, and a directory that is not that inode any more is skipped
// with a warning.
//
// One string carries the path of the current directory: entering appends a component, leaving cuts
// it off.

#include "walk/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "walk/levels.h"
#include "walk/mounts.h"
#include "walk/process_entry.h"
#include "walk/visited.h"

namespace {

// A top directory as it was found before the walk.
struct Top {
  const std::string& path;
  UniqueFd parent;             // the directory that holds it
  std::optional<DevInode> id;  // the inode that must be opened; empty when there is none
  int error = 0;               // errno when `id` is empty
};

constexpr int kMostRetries = 100;  // of a call that ends with EINTR without a signal

enum class Entered { Yes, Skipped, Failed };

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
  void leave();
  void restoreFullpath();
  size_t appendToPath(const char* name);
  void reportSkipped() const;
  void beginAhead();

  const Top& top;
  const CommandOptions& options;
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  NewOwners newOwners;
  WalkContext walk;
  DirectoryContext directory;  // of the current directory
  EntryProbe probe;
  std::string path;
  DescriptorBatch usedPins;
  bool changing = false;  // whether the previous entry was changed
  Levels levels;
  alignas(dirent64) std::array<char, 65536> names = {};
  AheadOfWalk ahead;  // declared last, so destroyed first
};

void reportNotOpened(const orvs::LoggerPtr& logger, const std::string& path) {
  TELL(Echo::Stderr, "Error: cannot opendir: %s: %s", path.c_str(), strerror(errno));
  left_undone::note();
}

// An entry that somebody has removed meanwhile does not count as left undone.
void noteUnlessGone() {
  if (errno != ENOENT)
    left_undone::note();
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Whether somebody besides root can rename and exchange the entries. The group bits hold the mask
// of an ACL, so write permission by an ACL shows there.
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

  while (!levels.isEmpty()) {
    if (!levels.hasNext() || interrupt::pending() != 0) {
      leave();
      continue;
    }
    enter(takeNext());  // a directory that cannot be entered does not stop its siblings
  }
  restoreFullpath();
  return 0;
}

// The next directory is opened from the descriptor of its level where there is one; then the
// current directory may stay where it is.
PendingDir TreeWalk::takeNext() {
  if (levels.needsWayBack())
    restoreFullpath();
  PendingDir next = levels.takeNext();
  appendToPath(next.name.c_str());
  return next;
}

OpenedDirectory TreeWalk::open(const PendingDir& next) {
  const char* name = baseNameView(path).data();
  return levels.isEmpty() ? openTop(name) : levels.open(next, name);
}

// A top directory that is exchanged while it is opened counts as one that cannot be opened.
OpenedDirectory TreeWalk::openTop(const char* name) const {
  OpenedDirectory opened;
  errno = top.error;
  if (top.id)
    opened = openDirectory(AT_FDCWD, name, true, top.id);
  if (opened.outcome == Opening::Exchanged)
    opened.outcome = Opening::Failed;
  return opened;
}

// `path` names the directory; its last component is cut off again unless the directory is entered.
// Entering reads the directory to its end. The descriptor is kept only for the subdirectories to be
// walked.
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

  levels.enter(idOf(opened.status), next.wasSymlink);
  directory = {next.device, walk.preserveBits || canOthersWrite(opened.status)};
  privateLog.syncIfDue();
  progress::look(path, privateLog.changeCount);
  bool areHelpersBehind = false;
  if (ahead.isActive())
    areHelpersBehind = ahead.enter(path, levels.innermost());
  else if (levels.depth() == 1 && ahead.beginsAtOnce())
    beginAhead();
  readDirectory(opened.fd.get());
  if (ahead.isActive())
    ahead.offer(levels.comingUp(areHelpersBehind ? 0 : levels.depth() - 1, path, ahead));
  usedPins.closeAll();
  levels.hold(std::move(opened.fd));
  return Entered::Yes;
}

void TreeWalk::readDirectory(int fd) {
  int retries = 0;
  for (;;) {
    const ssize_t filled = getdents64(fd, names.data(), names.size());
    const bool isSignal = filled < 0 && errno == EINTR && interrupt::pending() != 0;
    // A user's FUSE file system may answer EINTR for ever, so the retries are bounded.
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
  // Changes come in runs: after a change the next entry is pinned at once and its status read from
  // the pin, which saves a lookup by name.
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
    levels.add({status.id.device, status.id.inode, isSymlink, name});
  path.resize(directoryLength);
  usedPins.add(pinned.release());
}

// Whether it matters where the target of this link lies: when the link would be changed, recorded
// or followed, or there would be a message about it.
bool TreeWalk::isLinkOfInterest(const EntryStatus& status, const char* name) {
  return options.follow || options.verbose || options.debug || options.traceSkips ||
         orvs::logEnabled(logger, 1) || newOwners.of(status.owner) ||
         privateLog.hasInode({status, path, name});
}

// Ends the innermost level; `path` becomes that of the level above, or of the parent of the top.
void TreeWalk::leave() {
  levels.leave();
  trimLastComponent(path);
}

// Makes `path` the current directory.
void TreeWalk::restoreFullpath() {
  if (!levels.goBack(path, top.parent.get()))
    reportSkipped();
}

// Returns the offset of the name in `path`.
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
  if (!ahead.begin(top.parent.get(), levels.top()))
    return;
  ahead.enter(path, levels.innermost());
  ahead.offer(levels.comingUp(0, path, ahead));
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
  // A foreign link on the way must not lead the walk into another tree.
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
