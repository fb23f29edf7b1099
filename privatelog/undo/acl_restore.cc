// Restores ACLs, and keeps capabilities across a change of owner. The way to the file is found, and
// obstacles are judged, as for a change of owner (owner_restore.cc).

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "privatelog/undo/owner_restore.h"
#include "services/left_undone.h"
#include "services/say.h"

Restored OwnerRestorer::restoreAcl(const LoggedAttribute& logged, const AttributeChange& change) {
  ScannedLine recorded;
  recorded.type = LineType::Change;
  recorded.record.path = change.path;
  recorded.record.id = change.id;
  Vouched vouched = {{}, logged.position, logged.fileSystem};
  vouched.line.kind =
      (change.flags & kAttributeFollowed) != 0 ? IndexKind::Followed : IndexKind::Change;
  vouched.line.birth = change.birth;
  recorded.vouched = vouched;
  acl = &change;
  const Restored result = restore(recorded);
  acl = nullptr;
  line = nullptr;
  return result;
}

// Whether another file at the path may get the former ACL: as for owners, only if it has one name,
// no foreign link is on the way, and no new id is an old id in any line.
bool OwnerRestorer::isSuccessorsAcl(const PinnedPath& way, const AclChanges& changes) const {
  for (const auto& [oldId, newId] : changes.users) {
    if (loaded.oldUids.contains(newId) || changes.users.contains(newId))
      return false;
  }
  for (const auto& [oldId, newId] : changes.groups) {
    if (loaded.oldGids.contains(newId) || changes.groups.contains(newId))
      return false;
  }
  return !way.foreignLink && (S_ISDIR(entry.status().mode) || entry.status().links == 1);
}

// An ACL with other entries or permissions by now (a chmod sets the mask) keeps those: only its
// changed ids are restored.
Restored OwnerRestorer::weighAcl(const PinnedPath& way) {
  const auto present = readAttribute(entry, acl->what);
  if (!present && errno != ENODATA)
    return notChanged(errno);
  const AclChanges changes = changesOfAcl(acl->former, acl->converted);
  const bool isIt = isRecorded(entry.status(), fileSystems.of(entry));
  std::string wanted = acl->former;
  if (present == acl->former)
    return Restored::Done;
  if (present != sortedAcl(acl->converted) || !(isIt || isSuccessorsAcl(way, changes))) {
    AclChanges back;
    for (const auto& [oldId, newId] : changes.users)
      back.users.emplace(newId, oldId);
    for (const auto& [oldId, newId] : changes.groups)
      back.groups.emplace(newId, oldId);
    const ConvertedAcl result =
        isIt && present ? convertAcl(*present, back.users, back.groups) : ConvertedAcl{};
    if (result.verdict != AclVerdict::Converted)
      return report(Failure::NotChanged, ESTALE,
                    coversRecorded(way) ? Restored::Waits : Restored::Done);
    wanted = sortedAcl(result.bytes);
  }
  if (!writeAttribute(entry, acl->what, wanted))
    return notChanged(errno);
  devices.note(entry.status().id.device);
  return Restored::Done;
}

// Reads the capability, and records it so that the next run can set it again if this one is killed
// right after the change of owner.
void OwnerRestorer::holdCapability(OwnerIds owner) {
  capability.clear();
  capabilityPosition = 0;
  if (!rules.preserveCapabilities || !S_ISREG(entry.status().mode))
    return;
  // Looks by name first: most files have no capability, and a look through the pin takes three
  // times as long.
  if (hasAttribute(name, line->isFollowed(), AttributeKind::Capability))
    capability = readAttribute(entry, AttributeKind::Capability).value_or("");
  if (capability.empty() && errno != ENODATA && errno != EOPNOTSUPP && errno != ENOENT)
    failedToKeepCapability();
  if (capability.empty() || !line->vouched || line->vouched->line.birth == 0)
    return;
  AttributeChange held;
  held.what = AttributeKind::Capability;
  held.flags = kAttributeRestoring | (line->isFollowed() ? kAttributeFollowed : 0);
  held.id = entry.status().id;
  held.birth = line->vouched->line.birth;
  held.path = path;
  held.former = capability;
  held.owner = owner;
  held.time = static_cast<uint32_t>(time(nullptr));
  capabilityPosition = index.addAttribute(held, 0).value_or(0);
  index.keep();
}

void OwnerRestorer::failedToKeepCapability() const {
  left_undone::note();
  SAY(logger, 1, "private_log", Echo::Stderr, "Error: cannot set the capabilities of %s back: %s",
      path.c_str(), strerror(errno));
}

void OwnerRestorer::putCapabilityBack() {
  if (capability.empty())
    return;
  if (!restoreCapability(entry, capability))
    failedToKeepCapability();
  if (capabilityPosition != 0)
    index.flagAttribute(capabilityPosition, kAttributeRestoring | kAttributeDone |
                                                (line->isFollowed() ? kAttributeFollowed : 0));
}
