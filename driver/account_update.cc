#include "driver/account_update.h"

#include <list>
#include <map>
#include <optional>
#include <string>

#include "idmap/id_maps.h"
#include "idmap/new_ids.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/say.h"

namespace {

// The first group of the file that bears `gid`, or null.
orvs::DBGroup* firstGroupOf(uint32_t gid, const std::list<orvs::DBGroup*>& groups) {
  for (orvs::DBGroup* group : groups) {
    if (group->gid == gid)
      return group;
  }
  return nullptr;
}

// All groups are looked up before the first update, so that a group which was given a new gid is
// never taken for the bearer of an old gid of the same value. Null: no local group bears the gid.
std::map<uint32_t, orvs::DBGroup*> groupsByOldGid(const std::list<orvs::DBGroup*>& groups) {
  std::map<uint32_t, orvs::DBGroup*> found;
  for (const auto& [oldGid, newGid] : gidMap)
    found[oldGid] = firstGroupOf(oldGid, groups);
  return found;
}

void updateGroups(const orvs::LoggerPtr& logger, orvs::GroupDB& groupDB) {
  for (const auto& [oldGid, group] : groupsByOldGid(groupDB.getEntries())) {
    if (interrupt::pending() != 0)
      return;
    if (group == nullptr)
      continue;
    const std::string name = group->name;
    const uint32_t newGid = gidMap.at(oldGid);
    if (privateLog.prepareGroupUpdateRecord(name, oldGid, newGid) &&
        groupDB.updateGroup(name, newGid) == 0) {
      privateLog.addGroupUpdateRecord(name, oldGid, newGid);
      continue;
    }
    privateLog.dropPreparedRecord();
    SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: group file update failed for group: %s",
        name.c_str());
  }
}

void updateUsers(const orvs::LoggerPtr& logger, orvs::PasswdDB& passwdDB) {
  for (const orvs::DBPasswd* user : passwdDB.getEntries()) {
    if (interrupt::pending() != 0)
      return;
    const OwnerIds oldIds = {user->uid, user->gid};
    const std::optional<OwnerIds> newIds = newIdsOfAccount(oldIds);
    if (!newIds)
      continue;
    const std::string name = user->name;
    if (privateLog.preparePasswdUpdateRecord(name, oldIds, *newIds) &&
        passwdDB.updateUser(name, newIds->uid, newIds->gid) == 0) {
      privateLog.addPasswdUpdateRecord(name, oldIds, *newIds);
      continue;
    }
    privateLog.dropPreparedRecord();
    SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: passwd file update failed for user: %s",
        name.c_str());
  }
}

}  // namespace

void updateAccountFiles(const orvs::LoggerPtr& logger,
                        orvs::GroupDB& groupDB,
                        orvs::PasswdDB& passwdDB) {
  updateGroups(logger, groupDB);
  updateUsers(logger, passwdDB);
}
