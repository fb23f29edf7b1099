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
  return verdict == AclVerdict::Colliding ? "two of its entries would get one id"
                                          : "it is malformed";
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

bool AttributeChanges::hasAcls(const FoundEntry& entry, bool followed) {
  if (const auto known = aclsByDevice.find(entry.status.id.device); known != aclsByDevice.end())
    return known->second;
  const bool isThere = hasAttribute(entry.name, followed, AttributeKind::AccessAcl);
  if (isThere || hasNone(errno))
    aclsByDevice.emplace(entry.status.id.device, isThere || errno != EOPNOTSUPP);
  return isThere || errno != EOPNOTSUPP;
}

// Looks by name; whoever reads an attribute afterwards reads it through the pin. False with errno.
bool AttributeChanges::look(const FoundEntry& entry, bool followed, Found& found) {
  const bool isLocal = privateLog.fileSystemOf(lookedAt(entry, followed)).keepsBirth;
  found = (isLocal ? attributesOf : attributesOneByOne)(entry.name, followed);
  return found.has_value();
}

void AttributeChanges::convertBoth(const FoundEntry& entry, bool followed, Found& found) {
  const mode_t type = entry.status.type();
  if (S_ISLNK(type) || !hasAcls(entry, followed))
    return;
  if (!look(entry, followed, found)) {
    if (errno != ENOENT)
      leaveAcl(entry, strerror(errno));
    return;
  }
  if (found->accessAcl)
    convertOne(entry, followed, AttributeKind::AccessAcl);
  if (found->defaultAcl && S_ISDIR(type))
    convertOne(entry, followed, AttributeKind::DefaultAcl);
}

void AttributeChanges::convertOne(const FoundEntry& entry, bool followed, AttributeKind kind) {
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

bool AttributeChanges::hold(const FoundEntry& entry,
                            bool followed,
                            const OwnerIds& newIds,
                            Found& found) {
  constexpr AttributeKind kKind = AttributeKind::Capability;
  if (!S_ISREG(entry.status.mode) || (found && !found->capability))
    return false;
  std::optional<std::string> value;
  if (found || look(entry, followed, found)) {
    if (!found->capability)
      return false;
    if (pinFound(entry, followed))
      value = readAttribute(entry.pinned, kKind);
  }
  if (!value) {
    if (!hasNone(errno) && errno != ENOENT)
      loseCapability(entry, strerror(errno));
    return false;
  }
  if (const auto root = rootOfCapability(*value); root && uidMap.contains(*root)) {
    ++attributesLeft;
    TELL(Echo::Stderr,
         "Warning: the capabilities of %s are for the root id %lu, which is not converted",
         entry.path.c_str(), static_cast<unsigned long>(*root));
  }
  AttributeChange record;
  record.what = kKind;
  record.former = heldCapability = *value;
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
