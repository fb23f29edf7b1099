#include "privatelog/undo/owner_restore.h"

#include <linux/magic.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "privatelog/recorded_entry.h"
#include "services/interrupt.h"
#include "services/left_undone.h"
#include "services/path_text.h"
#include "services/say.h"

namespace {

// Whether the answers come from the kernel: a user's FUSE file system may give any answer.
bool isKernelsWord(const FileSystemFacts& facts) {
  return facts.type != 0 && !facts.isFuse;
}

// Files on such a file system are gone once it is unmounted.
bool livesInMemory(const NotedFileSystem& noted) {
  return noted.type == TMPFS_MAGIC || noted.type == RAMFS_MAGIC;
}

// Whether a user can make the file system vanish: anybody can create and remove a Btrfs subvolume,
// or a FUSE mount, in a directory of his own.
bool isUsersToRemove(const NotedFileSystem& noted, const FileSystemFacts& below) {
  return noted.type == FUSE_SUPER_MAGIC ||
         (noted.type == BTRFS_SUPER_MAGIC && below.type == BTRFS_SUPER_MAGIC);
}

// Whether root alone can change the names that lead to the directory `stoppedAt`, and those in it.
bool isRootsAlone(const PinnedPath& way, const EntryStatus& stoppedAt) {
  return way.rootAlone && stoppedAt.owner.uid == 0 && (stoppedAt.mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

OwnerRestorer::OwnerRestorer(orvs::LoggerPtr itsLogger,
                             Rules itsRules,
                             LoadedLog& log,
                             LogIndex& logIndex,
                             FileSystems& facts,
                             ChangedDevices& changed)
    : logger(std::move(itsLogger)),
      rules(itsRules),
      loaded(log),
      index(logIndex),
      fileSystems(facts),
      devices(changed) {}

Restored OwnerRestorer::restore(const ScannedLine& itsLine) {
  line = &itsLine;
  path.assign(line->record.path);
  name = baseNameView(path).data();
  return rules.hardened ? restoreWeighed() : restoreLiterally();
}

// ---- Without idshift.hardened: the record is trusted

Restored OwnerRestorer::restoreLiterally() {
  if (!enterDirectory(directoryPart(path)))
    return report(Failure::Unreachable, errno, Restored::Done);
  const bool followed = line->type == LineType::FollowedChange;
  const bool isFound = entry.pin(name, followed);
  if (!isFound && rules.preserveBits)
    return failedToStat();
  if (isFound)
    holdCapability(line->record.oldIds);
  if (!isFound || !entry.changeOwner(line->record.oldIds))
    return report(Failure::NotChanged, errno, Restored::Done);
  putCapabilityBack();
  devices.note(entry.status().id.device);
  return rules.preserveBits ? putBitsBack() : Restored::Done;
}

// Required: ends the undo with the line unmarked; the next undo begins again at this line.
Restored OwnerRestorer::failedToStat() {
  SAY(logger, 1, "private_log", Echo::Stderr, "Failed to stat %s: %s", name, strerror(errno));
  return Restored::Stop;
}

// Required: a failure ends the undo with the line unmarked, though the owner has been restored.
Restored OwnerRestorer::putBitsBack() {
  if ((entry.status().mode & kSpecialBits) == 0 || entry.restoreMode())
    return Restored::Done;
  SAY(logger, 1, "private_log", Echo::Stderr,
      "Failed to set the execution bits of %s back by chmod(): errno=%d (%s)", name, errno,
      strerror(errno));
  return Restored::Stop;
}

// ---- With idshift.hardened: the record is weighed against the file

// When the path leads to the recorded file itself, no more proof is needed. For any other file the
// path is resolved component by component, to see who can change the way.
Restored OwnerRestorer::restoreWeighed() {
  // A colon in the path has shifted the fields, so the line names no file.
  if (!line->vouched && line->record.hasSurplusFields)
    return report(Failure::NotChanged, ESTALE, Restored::Done);
  if (pinRecorded())
    return weigh({});
  const std::string_view wanted = directoryPart(path);
  const bool isReachable = enterDirectory(wanted);
  const int reason = errno;
  PinnedPath way =
      pinPath(path, line->isFollowed() ? LastLink::Follow : LastLink::Keep, ForeignLinks::Follow);
  if (isReachable && way.object) {
    entry.adopt(std::move(way.object), way.status);
    return weigh(way);
  }
  if (!wanted.empty() && mayPass(way))
    return report(isReachable ? Failure::NotChanged : Failure::Unreachable, way.error,
                  Restored::Waits);
  return isReachable ? report(Failure::NotChanged, way.error, Restored::Done)
                     : report(Failure::Unreachable, reason, Restored::Done);
}

bool OwnerRestorer::pinRecorded() {
  const std::string_view wanted = directoryPart(path);
  return line->vouched && line->vouched->line.birth != 0 &&
         (stepInto(wanted) || enterDirectory(wanted)) && entry.pin(name, line->isFollowed()) &&
         isRecorded(entry.status(), fileSystems.of(entry));
}

bool OwnerRestorer::isRecorded(const EntryStatus& status, const FileSystemFacts& facts) const {
  return line->vouched && ::isRecorded(*line->vouched, line->record.id.inode, status, facts);
}

// The ids of the record, and how they relate to the ids of all lines of the log, undone and account
// lines included.
RecordedIds OwnerRestorer::recordedIds() const {
  RecordedIds ids = {line->record.oldIds, line->record.newIds, false, false};
  const bool changesUid = ids.oldIds.uid != ids.newIds.uid;
  const bool changesGid = ids.oldIds.gid != ids.newIds.gid;
  ids.isChained = (changesUid && loaded.newUids.contains(ids.oldIds.uid)) ||
                  (changesGid && loaded.newGids.contains(ids.oldIds.gid));
  ids.mayBeOwn = (changesUid && loaded.oldUids.contains(ids.newIds.uid)) ||
                 (changesGid && loaded.oldGids.contains(ids.newIds.gid));
  return ids;
}

// Whether another record names the pinned file, one of this section or else of an older one: names
// may have been swapped.
bool OwnerRestorer::findOwnRecord(LoggedChange& own) const {
  const FileSystemFacts& facts = fileSystems.of(entry);
  const EntryStatus& status = entry.status();
  if (!facts.keepsBirth || status.birth == 0)
    return false;
  const auto classes = loaded.classes.ofDevice(status.id.device, facts);
  bool isFound = false;
  loaded.table.any({classes.front(), status.id.inode}, [&](const LoggedChange& known) {
    if (known.birth != status.birth || known.newIds == known.oldIds)
      return false;
    own = known;
    isFound = true;
    return isOfSection(known);
  });
  return isFound;
}

// Compares the pinned file with the record and carries the decision out (dealWith() in
// undo_plan.cc). When another record names the file, for example after two names were swapped, that
// record's ids count and not those of this line.
Restored OwnerRestorer::weigh(const PinnedPath& way) {
  if (acl != nullptr)
    return weighAcl(way);
  const EntryStatus& status = entry.status();
  FoundAtPath found;
  found.owner = status.owner;
  found.isRecorded = isRecorded(status, fileSystems.of(entry));
  found.hasForeignLink = way.foreignLink;
  found.hasOneName = S_ISDIR(status.mode) || status.links == 1;
  RecordedIds ids = recordedIds();
  LoggedChange own;
  if (!found.isRecorded && findOwnRecord(own)) {
    if (isOfSection(own)) {
      ids = {own.oldIds, own.newIds, false, false};
      found.isRecorded = true;
    } else if (own.oldIds != ids.oldIds) {
      ids.mayBeOwn = true;
    }
  }
  const Deal deal = dealWith(ids, found);
  // A change that was not made needs no undo, and its line is not marked.
  if (deal == Deal::IsBack)
    return line->type == LineType::IncompleteChange ? Restored::NotYet : Restored::Done;
  if (deal == Deal::Leave)
    return report(Failure::NotChanged, ESTALE,
                  coversRecorded(way) ? Restored::Waits : Restored::Done);
  return change(ids.oldIds, deal == Deal::Restore);
}

Restored OwnerRestorer::change(OwnerIds oldIds, bool withBits) {
  const mode_t mode = entry.status().mode;
  const bool keepsBits = rules.preserveBits && withBits && (mode & kSpecialBits) != 0;
  if (withBits)
    holdCapability(oldIds);
  if ((keepsBits && !holdMode(mode)) || !entry.changeOwner(oldIds))
    return notChanged(errno);
  putCapabilityBack();
  devices.note(entry.status().id.device);
  return keepsBits ? putBitsBack() : Restored::Done;
}

Restored OwnerRestorer::notChanged(int error) {
  const FileSystemFacts& facts = fileSystems.of(entry);
  // A read-only Btrfs subvolume on a writable mount: the owner of a subvolume can make it
  // read-only.
  const bool isOwners = error == EROFS && facts.type == BTRFS_SUPER_MAGIC && !facts.isReadOnly;
  const bool waits = isRootsObstacle(error) && isKernelsWord(facts) && !isOwners;
  return report(Failure::NotChanged, error, waits ? Restored::Waits : Restored::Done);
}

// Records the mode, so that the next run can restore the bits if this one is killed right after the
// change of owner.
bool OwnerRestorer::holdMode(mode_t mode) {
  const uint8_t flags = line->vouched ? line->vouched->line.flags : uint8_t{0};
  return !line->vouched ||
         index.holdMode(line->vouched->position, mode, flags | kLineHoldsMode | kLineRestoring);
}

// ---- Obstacles

// Whether the path may lead to the file again later: the obstacle is one that root alone can make,
// or the file system of the record is not mounted at its place. A file system in memory does not
// come back.
bool OwnerRestorer::mayPass(const PinnedPath& way) {
  if (way.foreignLink || !way.stoppedAt)
    return isRootsObstacle(way.error) && !way.foreignLink;
  EntryStatus status;
  if (!lookAt(way.stoppedAt.get(), status))
    return false;
  const FileSystemFacts& facts = fileSystems.of(way.stoppedAt.get(), status.id.device);
  if (!isKernelsWord(facts))
    return false;
  if (way.error != ENOENT)
    return isRootsObstacle(way.error);
  if (!line->vouched || line->vouched->fileSystem.type == 0)
    return status.id.device != line->record.id.device;
  const NotedFileSystem& noted = line->vouched->fileSystem;
  if (livesInMemory(noted) || (isUsersToRemove(noted, facts) && !isRootsAlone(way, status)))
    return false;
  return noted.fsid != 0 ? noted.fsid != facts.fsid : noted.device != status.id.device;
}

// Whether the recorded file may be on a file system that is not mounted now, so that the path leads
// to the mount point or to a file below it. An id that is only the device number proves nothing:
// under another number it may be the same file system.
bool OwnerRestorer::coversRecorded(const PinnedPath& way) const {
  if (!way.rootAlone || !line->vouched)
    return false;
  const NotedFileSystem& noted = line->vouched->fileSystem;
  const uint64_t found = fileSystems.of(entry).fsid;
  return noted.fsid != 0 && noted.fsid != noted.device && found != 0 && noted.fsid != found &&
         !livesInMemory(noted);
}

// EINTR after a signal says nothing about the file: the undo ends before this line, and the next
// undo begins with it. EINTR without a signal comes from a user's FUSE file system and counts as a
// failure.
Restored OwnerRestorer::report(Failure failure, int error, Restored result) {
  if (error == EINTR && interrupt::pending() != 0)
    return Restored::Stop;
  left_undone::note();
  if (failure == Failure::Unreachable)
    SAY(logger, 1, "private_log", Echo::Stderr, "Warning: skipping %s: %s", path.c_str(),
        strerror(error));
  else if (acl != nullptr)
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot set the ACL of %s back: %s",
        path.c_str(), strerror(error));
  else
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(),
        strerror(error));
  return result;
}

// Changes into a directory at or below the current one by the rest of the path, so that a deep tree
// costs linear time. The current directory may have been moved, so the caller must check that the
// file found is the recorded one.
bool OwnerRestorer::stepInto(std::string_view wanted) {
  if (directory.empty() || !wanted.starts_with(directory))
    return false;
  const std::string_view rest = wanted.substr(directory.size());
  if (rest.empty())
    return true;
  if (!rest.starts_with('/') || !changeDirectory(std::string(rest.substr(1))))
    return false;
  directory = wanted;
  return true;
}

bool OwnerRestorer::enterDirectory(std::string_view wanted) {
  const std::string target(wanted);
  if (!changeDirectory(target))
    return false;
  // Only an absolute path leads to the same directory a second time.
  directory = target.starts_with('/') ? target : std::string();
  return true;
}
