#include "walk/process_entry.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "privatelog/private_log.h"
#include "services/path_text.h"
#include "services/say.h"
#include "walk/mounts.h"
#include "walk/visited.h"

namespace {

// What the rest of processEntry does after the change was dealt with.
enum class Next { Dispatch, Descend, LeaveOut };

// One entry on its way through processEntry.
class Entry {
 public:
  Entry(const std::string& fullPath,
        struct stat& lookedAt,
        PinnedEntry& entryPin,
        const EntryContext& entryContext,
        bool wasFollowed)
      : path(fullPath),
        name(baseNameView(fullPath).data()),
        status(lookedAt),
        pinned(entryPin),
        context(entryContext),
        options(entryContext.options),
        logger(entryContext.logger),
        followed(wasFollowed) {}

  Descend process();

 private:
  DevInode id() const { return idOf(status); }
  OwnerIds onDisk() const { return ownerOf(status); }
  bool isTalkative() const { return options.verbose || options.debug; }
  bool showsSkips() const { return options.traceSkips || isTalkative(); }

  void recordKnownInode();
  Next convert(OwnerIds ids);
  Next change(OwnerIds ids);
  Next changeFailed();
  bool changeOwner(OwnerIds ids);
  bool restoreBits();
  Descend dispatch(mode_t type);
  Descend followLink();

  const std::string& path;
  const char* name;  // the end of `path`
  struct stat& status;
  PinnedEntry& pinned;
  const EntryContext& context;
  const CommandOptions& options;
  const orvs::LoggerPtr& logger;
  const bool followed;
};

Descend Entry::process() {
  const mode_t type = status.st_mode & S_IFMT;
  if (isTalkative())
    SAY(logger, 1, "cli_idshift", Echo::Stderr, "checking %s ...", path.c_str());

  if (privateLog.hasInode(id())) {
    recordKnownInode();
    return dispatch(type);
  }
  if (S_ISDIR(type) &&
      checkMountCross(path.c_str(), status, context.parentDevice, options, logger)) {
    if (showsSkips())
      SAY(logger, 1, "cli_idshift", Echo::Stderr, "Skipping Directory cross-device: %s",
          path.c_str());
    return Descend::No;
  }
  if (const std::optional<OwnerIds> ids = context.newOwners.of(onDisk())) {
    const Next next = convert(*ids);
    if (next != Next::Dispatch)
      return next == Next::Descend ? Descend::Yes : Descend::No;
  }
  return dispatch(type);
}

// The table knows the inode, from this run or from one that was interrupted: its owner is not
// touched again, whatever its ids are now.
void Entry::recordKnownInode() {
  if (privateLog.hasPath(id(), path)) {
    if (showsSkips())
      SAY(logger, 1, "cli_idshift", Echo::Stderr, "Skipping already changed file: %s",
          path.c_str());
    return;
  }
  if (showsSkips())
    SAY(logger, 1, "cli_idshift", Echo::Stderr, "Added Link: %s", path.c_str());
  if (!privateLog.addLinkRecord(id(), path))
    SAY(logger, 1, "cli_idshift", Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(),
        strerror(errno));
}

Next Entry::convert(OwnerIds ids) {
  if (options.pretend) {
    SAY(logger, 1, "cli_idshift", Echo::Stdout, "chown %s [%lu/%lu] -> [%lu/%lu]", path.c_str(),
        static_cast<unsigned long>(status.st_uid), static_cast<unsigned long>(status.st_gid),
        static_cast<unsigned long>(ids.uid), static_cast<unsigned long>(ids.gid));
    return Next::Dispatch;
  }
  // Required: said before the change and whatever becomes of it; a run without --commit shows by
  // these lines what it would do.
  if (isTalkative())
    SAY(logger, 1, "cli_idshift", Echo::Stderr, "changed ownership of %s", path.c_str());
  return options.commit ? change(ids) : Next::Dispatch;
}

Next Entry::change(OwnerIds ids) {
  if (!privateLog.beginRecord(id(), onDisk(), path, followed)) {
    SAY(logger, 1, "cli_idshift", Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(),
        strerror(errno));
    return Next::Dispatch;
  }
  if (!changeOwner(ids))
    return changeFailed();
  if (context.preserveBits && (status.st_mode & kSpecialBits) != 0 && !restoreBits())
    return Next::Descend;
  privateLog.finishRecord(ids);
  return Next::Dispatch;
}

// By name only where nobody but root could put another inode under the name. A followed link leads
// out of this directory, so its target is pinned always.
bool Entry::changeOwner(OwnerIds ids) {
  if (!context.mustPin && !followed)
    return lchown(name, ids.uid, ids.gid) == 0;
  const bool isPinned = pinned.descriptor() >= 0 && idOf(pinned.status()) == id();
  return (isPinned || pinned.pin(name, followed, id())) && pinned.changeOwner(ids);
}

Next Entry::changeFailed() {
  SAY(logger, 1, "cli_idshift", Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(),
      strerror(errno));
  privateLog.abandonRecord();
  if (!options.nfs || !isOnRemote(name))
    return Next::Dispatch;
  SAY(logger, 1, "cli_idshift", Echo::Stderr,
      "Please check if root_squash or all_squash has been set on NFS server.");
  return Next::LeaveOut;
}

// Required: on failure the record stays open, neither in the table nor counted, and the next record
// continues on its line. A reader then sees no finished change here, while the new ids on disk tell
// that it was made.
bool Entry::restoreBits() {
  if (pinned.changeMode(status.st_mode))
    return true;
  SAY(logger, 1, "cli_idshift", Echo::Stderr,
      "Failed to set the execution bits of %s back by chmod(): errno=%d (%s)", name, errno,
      strerror(errno));
  privateLog.leaveRecordOpen();
  return false;
}

Descend Entry::dispatch(mode_t type) {
  if (S_ISDIR(type)) {
    if (visitedDirs.insert(id()).second)
      return Descend::Yes;
    SAY(logger, 1, "cli_idshift", stderrIf(options.traceSkips), "Skipping Already Visited Dir: %s",
        path.c_str());
    return Descend::No;
  }
  if (!S_ISLNK(type))
    return Descend::No;
  if (options.follow)
    return followLink();
  SAY(logger, 1, "cli_idshift", stderrIf(options.traceSkips), "Skipping symlink: %s", path.c_str());
  return Descend::No;
}

Descend Entry::followLink() {
  if (stat(name, &status) == 0)
    return processEntry(path, status, pinned, context, true);
  SAY(logger, 1, "cli_idshift", Echo::Stderr,
      "Warning: skipping file %s since it or a directory component is no longer accessible.",
      path.c_str());
  SAY(logger, 1, "cli_idshift", Echo::None, "can not stat %s: %s", path.c_str(), strerror(errno));
  return Descend::No;
}

}  // namespace

Descend processEntry(const std::string& path,
                     struct stat& status,
                     PinnedEntry& pinned,
                     const EntryContext& context,
                     bool followed) {
  return Entry(path, status, pinned, context, followed).process();
}
