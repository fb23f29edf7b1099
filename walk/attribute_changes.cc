#include "walk/attribute_changes.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "entry/attribute_ids.h"
#include "idmap/id_maps.h"
#include "privatelog/private_log.h"
#include "services/left_undone.h"
#include "services/say.h"
#include "walk/process_entry.h"

uint64_t attributesLeft = 0;

namespace {

LookedAt lookedAt(const FoundEntry& entry, bool followed) {
  return {entry.status, entry.path, entry.name, followed};
}

bool hasNone(int error) {
  return error == ENODATA || error == EOPNOTSUPP;
}

const char* reasonOf(AclVerdict verdict) {
  return verdict == AclVerdict::Colliding ? "two of its entries would be for one id"
                                          : "it is not understood";
}

}  // namespace

bool pinFound(const FoundEntry& entry, bool followed) {
  const bool isPinned =
      entry.pinned.descriptor() >= 0 && entry.pinned.status().id == entry.status.id;
  return isPinned || entry.pinned.pin(entry.name, followed, entry.status.id);
}

bool copyUpFound(const FoundEntry& entry, bool followed) {
  if (!pinFound(entry, followed) || !entry.pinned.touch() ||
      !lookAt(entry.pinned.descriptor(), entry.status))
    return false;
  entry.pinned.adopt(entry.pinned.release(), entry.status);
  return true;
}

AttributeChanges::AttributeChanges(bool itConvertsAcls, bool itKeepsCapabilities)
    : convertsAcls(itConvertsAcls),
      keepsCapabilities(itKeepsCapabilities),
      logger(getLogger("cli.idshift", false)) {}

// ---- ACLs

void AttributeChanges::convertBoth(const FoundEntry& entry, bool followed) {
  const mode_t type = entry.status.type();
  if (S_ISLNK(type) || devicesWithoutAcls.contains(entry.status.id.device))
    return;
  convertOne(entry, followed, AttributeKind::AccessAcl);
  if (S_ISDIR(type))
    convertOne(entry, followed, AttributeKind::DefaultAcl);
}

// By name: what stands there is looked at again through the pin.
bool AttributeChanges::mayHave(const FoundEntry& entry, bool followed, AttributeKind kind) {
  if (hasAttribute(entry.name, followed, kind))
    return true;
  if (errno == EOPNOTSUPP)
    devicesWithoutAcls.insert(entry.status.id.device);
  else if (errno != ENODATA)
    leaveAcl(entry, strerror(errno));
  return false;
}

void AttributeChanges::convertOne(const FoundEntry& entry, bool followed, AttributeKind kind) {
  if (!mayHave(entry, followed, kind))
    return;
  const auto former = pinFound(entry, followed) ? readAttribute(entry.pinned, kind) : std::nullopt;
  if (former)
    return change(entry, followed, kind, *former);
  if (!hasNone(errno))
    leaveAcl(entry, strerror(errno));
}

void AttributeChanges::change(const FoundEntry& entry,
                              bool followed,
                              AttributeKind kind,
                              const std::string& former) {
  ConvertedAcl result = convertAcl(former, uidMap, gidMap);
  if (result.verdict == AclVerdict::Unconcerned ||
      privateLog.hasAttribute(lookedAt(entry, followed), kind, former))
    return;
  if (result.verdict != AclVerdict::Converted)
    return leaveAcl(entry, reasonOf(result.verdict));
  const std::string wanted = sortedAcl(result.bytes);
  AttributeChange record;
  record.what = kind;
  record.former = former;
  record.converted = std::move(result.bytes);
  const bool copiesUp = privateLog.fileSystemOf(lookedAt(entry, followed)).copiesUp;
  if ((copiesUp && !copyUpFound(entry, followed)) ||
      !privateLog.beginAttribute(lookedAt(entry, followed), std::move(record)))
    return leaveAcl(entry, strerror(errno));
  const bool isDone = writeAttribute(entry.pinned, kind, wanted);
  const int error = errno;
  privateLog.endAttribute(isDone);
  if (!isDone)
    leaveAcl(entry, strerror(error));
}

void AttributeChanges::leaveAcl(const FoundEntry& entry, const char* reason) const {
  ++attributesLeft;
  left_undone::note();
  TELL(Echo::Stderr, "Error: cannot convert the ACL of %s: %s", entry.path.c_str(), reason);
}

// ---- Capabilities

bool AttributeChanges::hold(const FoundEntry& entry, bool followed, const OwnerIds& newIds) {
  constexpr AttributeKind kKind = AttributeKind::Capability;
  if (!S_ISREG(entry.status.mode) || !hasAttribute(entry.name, followed, kKind))
    return false;
  const auto found = pinFound(entry, followed) ? readAttribute(entry.pinned, kKind) : std::nullopt;
  if (!found) {
    if (!hasNone(errno))
      loseCapability(entry, strerror(errno));
    return false;
  }
  if (const auto root = rootOfCapability(*found); root && uidMap.contains(*root)) {
    ++attributesLeft;
    TELL(Echo::Stderr, "Warning: the capabilities of %s are for the root id %lu, which is left",
         entry.path.c_str(), static_cast<unsigned long>(*root));
  }
  AttributeChange record;
  record.what = kKind;
  record.former = heldCapability = *found;
  record.owner = newIds;
  if (privateLog.beginAttribute(lookedAt(entry, followed), std::move(record)))
    return true;
  loseCapability(entry, strerror(errno));
  return false;
}

void AttributeChanges::endCapability(const FoundEntry& entry, bool isChanged) {
  const bool isKept = !isChanged || restoreCapability(entry.pinned, heldCapability);
  const int error = errno;
  privateLog.endAttribute(isChanged && isKept);
  if (!isKept)
    loseCapability(entry, strerror(error));
}

void AttributeChanges::loseCapability(const FoundEntry& entry, const char* reason) const {
  ++attributesLeft;
  left_undone::note();
  TELL(Echo::Stderr, "Error: cannot keep the capabilities of %s: %s", entry.path.c_str(), reason);
}
