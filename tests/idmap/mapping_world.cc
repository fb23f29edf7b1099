#include "tests/idmap/mapping_world.h"

#include "accountdb/passwdDB.h"
#include "idmap/group_map.h"
#include "idmap/user_map.h"

namespace {

std::string entryAsText(const char* kind,
                        uint32_t oldId,
                        uint32_t newId,
                        const ConflictMap& conflicts) {
  const auto found = conflicts.find(oldId);
  const std::string ids = std::to_string(oldId) + " -> " + std::to_string(newId);
  if (found == conflicts.end())
    return "BROKEN " + ids + " has no record";
  const ConflictRecord& record = found->second;
  const bool byName = record.resolution == RESOLUTION_USE_ZONE_ID;
  if (record.localId != oldId || record.newId != newId ||
      record.zoneId != (byName ? newId : oldId) || record.resolution == RESOLUTION_NONE)
    return "BROKEN " + ids + " has a record of " + std::to_string(record.localId) + ", " +
           std::to_string(record.zoneId) + ", " + std::to_string(record.newId);
  return std::string(kind) + " " + ids + ": " + record.localName +
         (byName ? " is " : " yields to ") + record.zoneName;
}

void appendMap(std::vector<std::string>& lines,
               const char* kind,
               const IdMap& ids,
               const ConflictMap& conflicts) {
  for (const auto& [oldId, newId] : ids)
    lines.push_back(entryAsText(kind, oldId, newId, conflicts));
  if (ids.size() != conflicts.size())
    lines.push_back("BROKEN records without an id");
}

}  // namespace

void clearMaps() {
  for (IdMap* map : {&uidMap, &gidMap, &userZoneGid, &userLocalGid})
    map->clear();
  userNameMap.clear();
  groupNameMap.clear();
  userConflicts.clear();
  groupConflicts.clear();
}

std::unique_ptr<FakeZone> openZone(const World& world) {
  auto zone = std::make_unique<FakeZone>();
  for (const ZoneUserRow& row : world.zoneUsers) {
    zone->user(row.unixName, row.uid, row.gid);
    if (row.askedAs != nullptr)
      zone->alias(row.askedAs, row.unixName);
  }
  for (const ZoneGroupRow& row : world.zoneGroups) {
    zone->group(row.name, row.gid);
    if (row.askedAs != nullptr)
      zone->alias(row.askedAs, row.name);
  }
  zone->start();
  return zone;
}

void buildMaps(const World& world, const CommandOptions& options) {
  orvs::PasswdDB users(true);
  orvs::GroupDB groups(true);
  for (const LocalUser& row : world.users) {
    orvs::DBPasswd entry;
    entry.name = row.name;
    entry.uid = row.uid;
    entry.gid = row.gid;
    users.insert(entry);
  }
  for (const LocalGroup& row : world.groups) {
    orvs::DBGroup entry;
    entry.name = row.name;
    entry.gid = row.gid;
    groups.insert(entry);
  }
  clearMaps();
  userNameMap = world.userNames;
  groupNameMap = world.groupNames;
  EXPECT_EQ(CreateGroupMaps(groups, options), 0);
  EXPECT_EQ(CreateIdMaps(users, groups, options), 0);
}

std::vector<std::string> mapsAsText() {
  std::vector<std::string> lines;
  appendMap(lines, "uid", uidMap, userConflicts);
  appendMap(lines, "gid", gidMap, groupConflicts);
  for (const auto& [uid, zoneGid] : userZoneGid) {
    const auto local = userLocalGid.find(uid);
    lines.push_back("primary of " + std::to_string(uid) + ": " +
                    (local == userLocalGid.end() ? "BROKEN" : std::to_string(local->second)) +
                    " -> " + std::to_string(zoneGid));
  }
  if (userLocalGid.size() != userZoneGid.size())
    lines.push_back("BROKEN local primary gids");
  return lines;
}
