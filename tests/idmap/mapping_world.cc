#include "tests/idmap/mapping_world.h"

#include <algorithm>
#include <sstream>

#include "accountdb/passwdDB.h"
#include "idmap/group_map.h"
#include "idmap/user_map.h"

namespace {

struct Account {
  std::string askedAs;
  std::string name;
  uint32_t id = 0;
  uint32_t gid = 0;
};

std::vector<Account> accounts(const char* text) {
  std::vector<Account> all;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    Account account;
    if (const size_t sign = word.find('='); sign != std::string::npos) {
      account.askedAs = word.substr(0, sign);
      word.erase(0, sign + 1);
    }
    std::replace(word.begin(), word.end(), ':', ' ');
    std::istringstream(word) >> account.name >> account.id >> account.gid;
    all.push_back(account);
  }
  return all;
}

NameMap nameMap(const char* text) {
  NameMap map;
  for (const Account& account : accounts(text))
    map[account.askedAs] = account.name;
  return map;
}

void append(std::string& text, const std::string& item) {
  text += (text.empty() ? "" : ", ") + item;
}

void appendMap(std::string& text, const char* kind, const IdMap& ids, const ConflictMap& records) {
  if (ids.size() != records.size())
    append(text, "BROKEN number of records");
  for (const auto& [oldId, newId] : ids) {
    const ConflictRecord record = records.contains(oldId) ? records.at(oldId) : ConflictRecord();
    const bool byName = record.resolution == RESOLUTION_USE_ZONE_ID;
    const bool fits = record.localId == oldId && record.newId == newId &&
                      record.zoneId == (byName ? newId : oldId) &&
                      (byName || record.resolution == RESOLUTION_ASSIGN_NEW_ID);
    append(text, (fits ? "" : "BROKEN ") + std::string(kind) + " " + std::to_string(oldId) +
                     " -> " + std::to_string(newId) + " " + record.localName +
                     (byName ? " is " : " yields to ") + record.zoneName);
  }
}

}  // namespace

void clearMaps() {
  for (IdMap* map : {&uidMap, &gidMap, &userZoneGid, &userLocalGid})
    map->clear();
  userConflicts.clear();
  groupConflicts.clear();
}

std::unique_ptr<FakeZone> openZone(const World& world) {
  auto zone = std::make_unique<FakeZone>();
  for (const Account& user : accounts(world.zoneUsers))
    zone->user(user.name, user.id, user.gid);
  for (const Account& group : accounts(world.zoneGroups))
    zone->group(group.name, group.id);
  for (const char* row : {world.zoneUsers, world.zoneGroups})
    for (const Account& account : accounts(row))
      if (!account.askedAs.empty())
        zone->alias(account.askedAs, account.name);
  zone->start();
  return zone;
}

void buildMaps(const World& world, const CommandOptions& options) {
  orvs::PasswdDB users(true);
  orvs::GroupDB groups(true);
  for (const Account& row : accounts(world.users)) {
    orvs::DBPasswd entry;
    entry.name = row.name;
    entry.uid = row.id;
    entry.gid = row.gid;
    users.insert(entry);
  }
  for (const Account& row : accounts(world.groups)) {
    orvs::DBGroup entry;
    entry.name = row.name;
    entry.gid = row.id;
    groups.insert(entry);
  }
  clearMaps();
  userNameMap = nameMap(world.userNames);
  groupNameMap = nameMap(world.groupNames);
  EXPECT_EQ(CreateGroupMaps(groups, options), 0);
  EXPECT_EQ(CreateIdMaps(users, groups, options), 0);
}

std::string mapsAsText() {
  std::string text;
  appendMap(text, "uid", uidMap, userConflicts);
  appendMap(text, "gid", gidMap, groupConflicts);
  for (const auto& [uid, zoneGid] : userZoneGid)
    append(text, "primary of " + std::to_string(uid) + ": " + std::to_string(userLocalGid.at(uid)) +
                     " -> " + std::to_string(zoneGid));
  EXPECT_EQ(userLocalGid.size(), userZoneGid.size());
  return text;
}
