#include "idmap/new_ids.h"

#include "idmap/id_maps.h"

namespace {

// The zone's primary group of the user `onDisk.uid`; nothing unless the entry has that user's local
// primary group.
std::optional<uint32_t> zonePrimaryGroup(OwnerIds onDisk) {
  const auto localGid = userLocalGid.find(onDisk.uid);
  if (localGid == userLocalGid.end() || localGid->second != onDisk.gid)
    return std::nullopt;
  const auto zoneGid = userZoneGid.find(onDisk.uid);
  if (zoneGid == userZoneGid.end())
    return std::nullopt;
  return zoneGid->second;
}

}  // namespace

std::optional<OwnerIds> newIdsOfEntry(OwnerIds onDisk) {
  const auto uid = uidMap.find(onDisk.uid);
  const auto gid = gidMap.find(onDisk.gid);
  if (uid == uidMap.end() && gid == gidMap.end())
    return std::nullopt;

  OwnerIds ids = onDisk;
  if (gid != gidMap.end())
    ids.gid = gid->second;
  if (uid != uidMap.end()) {
    ids.uid = uid->second;
    ids.gid = zonePrimaryGroup(onDisk).value_or(ids.gid);
  }
  if (ids == onDisk)
    return std::nullopt;
  return ids;
}

std::optional<OwnerIds> newIdsOfAccount(OwnerIds present) {
  const auto newUid = uidMap.find(present.uid);
  const auto newGid = gidMap.find(present.gid);
  const uint32_t gidByMap = newGid != gidMap.end() ? newGid->second : present.gid;
  if (newUid != uidMap.end()) {
    // Required: unlike for files, the line's gid is not compared with the recorded local one. An
    // account that moves belongs to the group that the zone gives it.
    const auto zoneGid = userZoneGid.find(present.uid);
    return OwnerIds{newUid->second, zoneGid != userZoneGid.end() ? zoneGid->second : gidByMap};
  }
  if (newGid != gidMap.end())
    return OwnerIds{present.uid, gidByMap};
  return std::nullopt;
}
