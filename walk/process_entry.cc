// The steps around one change. The start of the record is written first: if the log cannot take it,
// nothing is changed. Then the owner is changed, then mode and capability are put back, because a
// change of owner clears them. The end of the record is written last. A kill at any point leaves a
// state that the next run can tell from the disk: without an end in the log, the ids of the entry
// show whether the change was made.
//
// An inode with several names is met once for each name. Only the first one changes it; the log's
// table knows the inode from then on, and further names are recorded as links.

#include "walk/process_entry.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "privatelog/private_log.h"
#include "services/left_undone.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"
#include "walk/mounts.h"
#include "walk/visited.h"

namespace {

// What follows the change of an entry. Dispatch: by its type, a directory is entered and a link
// followed. Enter: a directory is entered, nothing else happens. LeaveOut: nothing.
enum class Next { Dispatch, Enter, LeaveOut };

// One entry on its way through processEntry.
class Entry {
 public:
  Entry(const FoundEntry& found,
        const WalkContext& walkContext,
        const DirectoryContext& directoryContext,
        bool wasFollowed)
      : path(found.path),
        name(found.name),
        status(found.status),
        pinned(found.pinned),
        walk(walkContext),
        directory(directoryContext),
        options(walkContext.options),
        logger(walkContext.logger),
        followed(wasFollowed) {}

  Processed process();
  void changeTo(OwnerIds ids) { convert(ids); }

 private:
  DevInode id() const { return status.id; }
  LookedAt look() const { return {status, path, name, followed}; }
  OwnerIds onDisk() const { return status.owner; }
  FoundEntry found() const { return {path, name, status, pinned}; }
  bool isTalkative() const { return options.verbose || options.debug; }
  bool showsSkips() const { return options.traceSkips || isTalkative(); }

  bool decideDescent();
  void recordKnownInode();
  void reportFailed();
  bool isPassedOver() const;
  bool isKnown() const;
  void complainOfSecondConversion();
  void tellVisitor();
  void convertAcls() {
    if (walk.attributes)
      walk.attributes->convertAcls(found(), followed, attributes);
  }
  Next convert(OwnerIds ids);
  Next change(OwnerIds ids);
  Next changeFailed();
  mode_t heldMode() const;
  bool changeOwner(OwnerIds ids, bool isPinned);
  bool restoreBits();
  bool dispatch(mode_t type);
  bool followLink();

  const std::string& path;
  const char* name;
  EntryStatus& status;
  PinnedEntry& pinned;
  const WalkContext& walk;
  const DirectoryContext& directory;
  const CommandOptions& options;
  const orvs::LoggerPtr& logger;
  const bool followed;
  AttributeChanges::Found attributes;
  bool changed = false;
};

Processed Entry::process() {
  const bool descend = decideDescent();
  return {changed, descend};
}

// Deals with the entry. True when the walk is to enter it as a directory.
bool Entry::decideDescent() {
  const mode_t type = status.type();
  if (isTalkative())
    TELL(Echo::Stderr, "checking %s ...", path.c_str());

  if (isKnown()) {
    convertAcls();
    if (walk.isStrict && walk.newOwners.of(onDisk()) && privateLog.isOfFormerAccounts(look()))
      complainOfSecondConversion();
    if (!walkPass.isLater)
      recordKnownInode();
    return dispatch(type);
  }
  if (S_ISDIR(type) && checkMountCross(path.c_str(), status, directory.device, options, logger)) {
    if (showsSkips())
      TELL(Echo::Stderr, "Skipping Directory cross-device: %s", path.c_str());
    return false;
  }
  if (walk.visitor != nullptr)
    tellVisitor();
  convertAcls();
  const std::optional<OwnerIds> ids = walk.newOwners.of(onDisk());
  if (ids && !isPassedOver()) {
    const Next next = convert(*ids);
    if (next != Next::Dispatch)
      return next == Next::Enter && S_ISDIR(type);
  }
  return dispatch(type);
}

bool Entry::isKnown() const {
  if (!privateLog.hasInode(look()))
    return false;
  const std::optional<OwnerIds> ids = walk.newOwners.of(onDisk());
  return !ids || !privateLog.isChangeLost(look(), *ids);
}

// The log knows the inode, from this run or an earlier one. Its owner is not changed again,
// whatever its ids are now; a name that the log does not have yet is recorded as a link.
void Entry::recordKnownInode() {
  if (privateLog.hasPath(look())) {
    if (showsSkips())
      TELL(Echo::Stderr, "Skipping already changed file: %s", path.c_str());
    return;
  }
  if (showsSkips())
    TELL(Echo::Stderr, "Added Link: %s", path.c_str());
  if (!privateLog.addLinkRecord(look()))
    reportFailed();
}

void Entry::reportFailed() {
  TELL(Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(), strerror(errno));
  walkPass.failed.insert(id());
  left_undone::note();
}

// A later pass looks for entries that came after the first walk, so it does not try a failed change
// again.
bool Entry::isPassedOver() const {
  return walkPass.isLater && walkPass.failed.contains(id());
}

// An entry that an earlier run converted would be left as it is. But the accounts have moved since,
// and one of its ids belongs to an account that is to move now.
void Entry::complainOfSecondConversion() {
  TELL(Echo::Stderr,
       "Error: %s was converted by an earlier run and has an id that would change again: use "
       "--restart to convert it once more.",
       path.c_str());
  left_undone::note();
}

// Out of line, so that a conversion, which has no visitor, does not pay for this call.
[[gnu::noinline]] void Entry::tellVisitor() {
  walk.visitor->visit({path, name, status, pinned}, followed);
}

Next Entry::convert(OwnerIds ids) {
  if (options.pretend) {
    TELL(Echo::Stdout, "chown %s [%lu/%lu] -> [%lu/%lu]", path.c_str(),
         static_cast<unsigned long>(status.owner.uid), static_cast<unsigned long>(status.owner.gid),
         static_cast<unsigned long>(ids.uid), static_cast<unsigned long>(ids.gid));
    return Next::Dispatch;
  }
  // Required: printed before the change, even if the change then fails; by these lines a run
  // without --commit shows what it would do.
  if (isTalkative())
    TELL(Echo::Stderr, "changed ownership of %s", path.c_str());
  return options.commit ? change(ids) : Next::Dispatch;
}

Next Entry::change(OwnerIds ids) {
  const bool copiesUp = privateLog.fileSystemOf(look()).copiesUp;
  const bool isReady = !copiesUp || copyUpFound(found(), followed);
  const bool holdsCapability = isReady && walk.attributes &&
                               walk.attributes->holdCapability(found(), followed, ids, attributes);
  if (!isReady || !privateLog.beginRecord(look(), ids, heldMode())) {
    reportFailed();
    if (holdsCapability)
      walk.attributes->endCapability(found(), false);
    return Next::Dispatch;
  }
  const bool isChanged = changeOwner(ids, holdsCapability);
  const int error = errno;
  if (holdsCapability)
    walk.attributes->endCapability(found(), isChanged);
  errno = error;
  if (!isChanged)
    return changeFailed();
  changed = true;
  if (heldMode() != 0 && !restoreBits())
    return Next::Enter;
  privateLog.finishRecord(ids);
  return Next::Dispatch;
}

// The mode to put back after the change of owner, or 0.
mode_t Entry::heldMode() const {
  return walk.preserveBits && (status.mode & kSpecialBits) != 0 ? status.mode : 0;
}

// Changes by name only where nobody but root can put another inode under the name. A followed link
// leads out of this directory, so its target is always pinned.
bool Entry::changeOwner(OwnerIds ids, bool isPinned) {
  if (!directory.mustPin && !followed && !isPinned)
    return lchown(name, ids.uid, ids.gid) == 0;
  return pinFound(found(), followed) && pinned.changeOwner(ids);
}

Next Entry::changeFailed() {
  reportFailed();
  privateLog.abandonRecord();
  if (!options.nfs || !isOnRemote(name))
    return Next::Dispatch;
  TELL(Echo::Stderr, "Please check if root_squash or all_squash has been set on NFS server.");
  return Next::LeaveOut;
}

// Required: when the mode cannot be put back, the record of the change of owner stays open. The
// record is not entered in the table and not counted, and the next record continues on its line. A
// reader then sees an unfinished change, and the new ids on the disk show that the change was made.
bool Entry::restoreBits() {
  if (pinned.restoreMode())
    return true;
  TELL(Echo::Stderr, "Failed to set the execution bits of %s back by chmod(): errno=%d (%s)", name,
       errno, strerror(errno));
  left_undone::note();
  privateLog.leaveRecordOpen();
  return false;
}

bool Entry::dispatch(mode_t type) {
  if (S_ISDIR(type)) {
    if (visitedDirs.insert(id()).second)
      return true;
    TELL(stderrIf(options.traceSkips), "Skipping Already Visited Dir: %s", path.c_str());
    return false;
  }
  if (!S_ISLNK(type))
    return false;
  if (options.follow)
    return followLink();
  TELL(stderrIf(options.traceSkips), "Skipping symlink: %s", path.c_str());
  return false;
}

bool Entry::followLink() {
  if (lookAt(name, true, status)) {
    const Processed target = processEntry({path, name, status, pinned}, walk, directory, true);
    changed = changed || target.changed;
    return target.descend;
  }
  TELL(Echo::Stderr,
       "Warning: skipping file %s since it or a directory component is no longer accessible.",
       path.c_str());
  TELL(Echo::None, "can not stat %s: %s", path.c_str(), strerror(errno));
  return false;
}

}  // namespace

WalkContext walkContext(const CommandOptions& options, NewOwners& newOwners, WalkVisitor* visitor) {
  const bool changes = options.commit && !options.pretend;
  const auto isSet = [](const char* key, bool byDefault) {
    return orvs::Props(false, false).getBool(key, byDefault);
  };
  const auto isOn = [changes, isSet](const char* key) { return changes && isSet(key, false); };
  // Without the index no later run could know which ACLs are converted already.
  const bool convertsAcls =
      isOn(orvs::PN::IDSHIFT_CONVERT_ACLS) && isSet(orvs::PN::IDSHIFT_HARDENED, true);
  const bool keepsCapabilities = isOn(orvs::PN::IDSHIFT_PRESERVE_CAPABILITIES);
  std::shared_ptr<AttributeChanges> attributes;
  if (convertsAcls || keepsCapabilities)
    attributes = std::make_shared<AttributeChanges>(convertsAcls, keepsCapabilities);
  return {options,
          getLogger("cli.idshift", false),
          newOwners,
          isOn(orvs::PN::IDSHIFT_PRESERVE_EXECUTION_BITS),
          isSet(orvs::PN::IDSHIFT_STRICT, false),
          attributes,
          visitor};
}

Processed processEntry(const FoundEntry& entry,
                       const WalkContext& walk,
                       const DirectoryContext& directory,
                       bool followed) {
  return Entry(entry, walk, directory, followed).process();
}

void changeEntry(const FoundEntry& entry,
                 const WalkContext& walk,
                 const DirectoryContext& directory,
                 bool followed,
                 OwnerIds newIds) {
  Entry(entry, walk, directory, followed).changeTo(newIds);
}
