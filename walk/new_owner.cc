#include "walk/new_owner.h"

#include "idmap/id_maps.h"

namespace {

// The zone's primary group of `onDisk.uid`, when the entry stands in that user's local one.
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

std::optional<OwnerIds> newOwner(OwnerIds onDisk) {
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
