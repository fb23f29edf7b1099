#include "privatelog/undo/owner_restore.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "entry/pinned_path.h"
#include "services/path_text.h"
#include "services/say.h"

OwnerRestorer::OwnerRestorer(orvs::LoggerPtr log, Rules itsRules, ChangedDevices& changed)
    : logger(std::move(log)), rules(itsRules), devices(changed) {}

bool OwnerRestorer::restore(const PrivateLogRecord& record, UndoStep step, Credit lineCredit) {
  path.assign(record.path);
  name = baseNameView(path).data();
  followed = step == UndoStep::RestoreThrough;

  bool found = false;
  if (!reach(record, found))
    return giveUp(Failure::Unreachable);
  // What is not to be acted on needs no mode, so a forged line cannot end the undo here.
  const bool needsMode = rules.preserveBits && lineCredit != Credit::None;
  if (!found && needsMode)
    return failedToStat();
  if (!found || !isTrusted(record, step, lineCredit) || !entry.changeOwner(record.oldIds))
    return giveUp(Failure::NotChanged);
  devices.note(entry.status().id.device);
  return !rules.preserveBits || putBitsBack(entry.status().mode);
}

// Pins what the path names. False when its directory cannot be entered; `found` tells about the
// entry itself, errno why it is false.
bool OwnerRestorer::reach(const PrivateLogRecord& record, bool& found) {
  const std::string_view wanted = directoryPart(path);
  found = rules.hardened && stepInto(wanted) && entry.pin(name, followed) &&
          entry.status().id == record.id;
  if (found)
    return true;
  // The recorded inode is not here: directories may have been moved meanwhile, so the whole path is
  // asked.
  if (!enterDirectory(wanted))
    return false;
  found = entry.pin(name, followed);
  return true;
}

// The short way into a directory at or below the current one, which keeps deep trees linear. Good
// only together with a look at the inode that is found there.
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
  // Only an absolute path leads to the same place when it is taken twice.
  directory = target.starts_with('/') ? target : std::string();
  return true;
}

// Sets errno when the answer is no.
bool OwnerRestorer::isTrusted(const PrivateLogRecord& record, UndoStep step, Credit lineCredit) {
  if (!rules.hardened)
    return true;
  const bool newIdsKnown = step != UndoStep::RestoreIfDone;
  const Credit credit =
      lineCredit == Credit::None
          ? Credit::None
          : creditOfEntry(record, newIdsKnown, entry.status().id, entry.status().owner);
  if (credit == Credit::Full || (credit == Credit::IfRootAlone && adoptIfRootAlone()))
    return true;
  errno = ESTALE;
  return false;
}

// Walks the whole path again with an eye on who can change it. What is found at its end is pinned
// in place of what was found before.
bool OwnerRestorer::adoptIfRootAlone() {
  PinnedPath pinned =
      pinPath(path, followed ? LastLink::Follow : LastLink::Keep, ForeignLinks::Follow);
  if (!pinned.object || !pinned.rootAlone)
    return false;
  entry.adopt(std::move(pinned.object), pinned.status);
  return true;
}

// A call that a signal interrupted says nothing about the file: the undo ends in front of this
// line, and the next one begins with it.
bool OwnerRestorer::giveUp(Failure failure) {
  if (errno == EINTR)
    return false;
  if (failure == Failure::Unreachable)
    SAY(logger, 1, "private_log", Echo::Stderr, "Warning: skipping %s: %s", path.c_str(),
        strerror(errno));
  else
    SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot chown: %s: %s", path.c_str(),
        strerror(errno));
  return true;
}

// Required: ends the undo with the line unmarked; the next undo begins again at this line.
bool OwnerRestorer::failedToStat() {
  SAY(logger, 1, "private_log", Echo::Stderr, "Failed to stat %s: %s", name, strerror(errno));
  return false;
}

// Required: a failure ends the undo with the line unmarked, though the owner has been restored.
bool OwnerRestorer::putBitsBack(mode_t mode) {
  if ((mode & kSpecialBits) == 0 || entry.changeMode(mode))
    return true;
  SAY(logger, 1, "private_log", Echo::Stderr,
      "Failed to set the execution bits of %s back by chmod(): errno=%d (%s)", name, errno,
      strerror(errno));
  return false;
}
