#include "survey/tree/tree_survey.h"

#include <cstring>
#include <utility>

#include "entry/attribute_ids.h"
#include "idmap/id_maps.h"
#include "idmap/zone_lookup.h"
#include "services/interrupt.h"
#include "survey/tree/attributes.h"
#include "walk/process_entry.h"

namespace {

constexpr const char* kCapability = "security.capability";
constexpr const char* kAcls[] = {"system.posix_acl_access", "system.posix_acl_default"};

std::string pairText(OwnerIds ids) {
  return std::to_string(ids.uid) + ":" + std::to_string(ids.gid);
}

std::string changeText(OwnerIds oldIds, OwnerIds newIds) {
  return pairText(oldIds) + " -> " + pairText(newIds);
}

}  // namespace

TreeSurvey::TreeSurvey(LocalIds localIds,
                       bool followsLinks,
                       size_t examplesForEach,
                       Findings& target)
    : local(std::move(localIds)),
      follows(followsLinks),
      findings(target),
      unknown(examplesForEach) {}

void TreeSurvey::beginTop(const std::string& path) {
  tops.push_back(path);
}

// Only an inode that can be met again is remembered: one with several names, or any under --follow.
// Flags are read last and only where they matter, on an entry that a commit would change, because
// they cost a system call.
void TreeSurvey::visit(const FoundEntry& entry, bool followed) {
  const EntryStatus& status = entry.status;
  if (!followed && strchr(entry.name, '\n') != nullptr)
    findings.add({Kind::LineFeed}, entry.path);
  const bool canComeAgain = follows || (status.links > 1 && !S_ISDIR(status.mode));
  if (canComeAgain && !seen.insert(status.id).second)
    return;

  const std::optional<OwnerIds> newIds = newOwners.of(status.owner);
  if (newIds)
    noteOwner(entry, newIds);
  noteUnknown(entry);
  bool matters = newIds.has_value();
  if (!S_ISLNK(status.mode)) {
    const std::string names = attributeNames(entry.name, followed);
    matters = noteAcls(entry, followed, names) || matters;
    if (hasAttribute(names, kCapability))
      noteCapability(entry, followed, newIds.has_value());
  }
  if (matters)
    noteFlags(entry, followed);
}

void TreeSurvey::noteOwner(const FoundEntry& entry, const std::optional<OwnerIds>& newIds) {
  const OwnerIds oldIds = entry.status.owner;
  const std::string change = changeText(oldIds, *newIds);
  findings.count({Kind::Changes});
  if (newIds->uid != oldIds.uid)
    findings.add({Kind::ChangesOfUser, oldIds.uid}, entry.path, change);
  if (newIds->gid != oldIds.gid)
    findings.add({Kind::ChangesOfGroup, oldIds.gid}, entry.path, change);
  if (S_ISREG(entry.status.mode) && (entry.status.mode & (S_ISUID | S_ISGID)) != 0)
    findings.add({Kind::SetId}, entry.path, change);
}

void TreeSurvey::noteUnknown(const FoundEntry& entry) {
  const OwnerIds owner = entry.status.owner;
  if (!local.uids.contains(owner.uid) && !uidMap.contains(owner.uid))
    unknown.add({Kind::UnknownUser, owner.uid}, entry.path);
  if (!local.gids.contains(owner.gid) && !gidMap.contains(owner.gid))
    unknown.add({Kind::UnknownGroup, owner.gid}, entry.path);
}

bool TreeSurvey::noteAcls(const FoundEntry& entry, bool followed, const std::string& names) {
  bool found = false;
  for (const char* attribute : kAcls) {
    if (!hasAttribute(names, attribute))
      continue;
    for (const AclId& named : idsOfAcl(readAttribute(entry.name, followed, attribute))) {
      const IdMap& map = named.isGroup ? gidMap : uidMap;
      const auto mapped = map.find(named.id);
      if (mapped == map.end() || mapped->second == named.id)
        continue;
      findings.add({Kind::AclEntry}, entry.path,
                   (named.isGroup ? "group " : "user ") + std::to_string(named.id) + " -> " +
                       std::to_string(mapped->second));
      found = true;
    }
  }
  return found;
}

void TreeSurvey::noteCapability(const FoundEntry& entry, bool followed, bool changes) {
  const std::optional<uint32_t> root =
      rootOfCapability(readAttribute(entry.name, followed, kCapability));
  if (root && uidMap.contains(*root))
    findings.add({Kind::Capability}, entry.path, "for root id " + std::to_string(*root));
  else if (changes)
    findings.add({Kind::Capability}, entry.path);
}

void TreeSurvey::noteFlags(const FoundEntry& entry, bool followed) {
  if (const std::string flags = unchangeableFlags(entry.name, followed); !flags.empty())
    findings.add({Kind::Unchangeable}, entry.path, flags);
}

void TreeSurvey::askZone() {
  if (unknown.all().empty())
    return;
  ZoneLookup zone;
  for (const auto& [key, finding] : unknown.all()) {
    if (interrupt::pending() != 0)
      return;
    const bool isKnown = key.kind == Kind::UnknownUser ? zone.user(*key.id) != nullptr
                                                       : zone.group(*key.id) != nullptr;
    if (!isKnown)
      findings.take(key, finding);
  }
}
