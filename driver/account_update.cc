#include "driver/account_update.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "idmap/id_maps.h"
#include "idmap/new_ids.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/left_undone.h"
#include "services/say.h"

namespace {

// A kill between two rewrites leaves some accounts with new ids and others with old ones. A plan of
// all updates, written to the log's index before the first one is made, tells a later run which are
// missing. That run compares the present ids of each account with its update. The new ids: the
// update was made. The old ids: the update is still to be made. Other ids: somebody has changed the
// account since, and the run leaves it alone.

// ---- What is to be done

// The first group of the file with each gid.
std::unordered_map<uint32_t, const orvs::DBGroup*> firstGroups(orvs::GroupDB& groups) {
  std::unordered_map<uint32_t, const orvs::DBGroup*> first;
  for (const orvs::DBGroup* group : groups.getEntries())
    first.emplace(group->gid, group);
  return first;
}

void appendGroupUpdates(std::vector<PlannedUpdate>& updates, orvs::GroupDB& groups) {
  const auto first = firstGroups(groups);
  for (const auto& [oldGid, newGid] : gidMap) {
    const auto group = first.find(oldGid);
    if (group != first.end())
      updates.push_back({true, group->second->name, {0, oldGid}, {0, newGid}});
  }
}

void appendUserUpdates(std::vector<PlannedUpdate>& updates, orvs::PasswdDB& users) {
  for (const orvs::DBPasswd* user : users.getEntries()) {
    const OwnerIds oldIds = {user->uid, user->gid};
    if (const std::optional<OwnerIds> newIds = newIdsOfAccount(oldIds))
      updates.push_back({false, user->name, oldIds, *newIds});
  }
}

// ---- What has been done

// An account of either file: whether it is a group, and its name.
using AccountName = std::pair<bool, std::string>;

OwnerIds idsOf(const orvs::DBPasswd& user) {
  return {user.uid, user.gid};
}
OwnerIds idsOf(const orvs::DBGroup& group) {
  return {0, group.gid};
}

// The present ids of all accounts. Several accounts may have one name.
class PresentIds {
 public:
  explicit PresentIds(const AccountFiles& accounts) {
    for (const orvs::DBGroup* group : accounts.groups.getEntries())
      ids.emplace(AccountName{true, group->name}, idsOf(*group));
    for (const orvs::DBPasswd* user : accounts.users.getEntries())
      ids.emplace(AccountName{false, user->name}, idsOf(*user));
  }

  bool has(const PlannedUpdate& update, OwnerIds wanted) const {
    const auto [begin, end] = ids.equal_range(AccountName{update.isGroup, update.name});
    return std::any_of(begin, end, [&](const auto& found) { return found.second == wanted; });
  }

 private:
  std::multimap<AccountName, OwnerIds> ids;
};

enum class Progress { Pending, Made, Strange };

Progress progressOf(const PresentIds& present, const PlannedUpdate& update) {
  if (present.has(update, update.newIds))
    return Progress::Made;
  return present.has(update, update.oldIds) ? Progress::Pending : Progress::Strange;
}

// ---- Making the updates

bool makeUpdate(const AccountFiles& accounts, const PlannedUpdate& update) {
  return update.isGroup
             ? accounts.groups.updateGroup(update.name, update.newIds.gid) == 0
             : accounts.users.updateUser(update.name, update.newIds.uid, update.newIds.gid) == 0;
}

void reportFailed(const orvs::LoggerPtr& logger, const PlannedUpdate& update) {
  left_undone::note();
  if (update.isGroup)
    SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: group file update failed for group: %s",
        update.name.c_str());
  else
    SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: passwd file update failed for user: %s",
        update.name.c_str());
}

// Makes an update and writes its line to the log. Returns false, and reports, when it could not be
// made.
bool carryOut(const orvs::LoggerPtr& logger,
              const AccountFiles& accounts,
              const PlannedUpdate& update,
              const AccountPlan& plan) {
  if (makeUpdate(accounts, update)) {
    privateLog.addAccountUpdate(update, plan);
    return true;
  }
  reportFailed(logger, update);
  return false;
}

std::string nameOf(const AccountPlan& plan) {
  return plan.date.empty() ? "an earlier run" : plan.date;
}

// Carries out one plan of a former run. The plan is closed unless an update failed. An update whose
// account has other ids by now can never be made, so it does not keep the plan open.
void finishPlan(const orvs::LoggerPtr& logger,
                const AccountFiles& accounts,
                const AccountPlan& plan) {
  const PresentIds present(accounts);
  bool isDone = true;
  for (const PlannedUpdate& update : plan.updates) {
    if (interrupt::pending() != 0)
      return;
    const Progress progress = progressOf(present, update);
    if (progress == Progress::Strange)
      TELL(Echo::Stderr,
           "Warning: %s %s has neither the old nor the new ids of the conversion from %s and is "
           "left as it is.",
           update.isGroup ? "group" : "user", update.name.c_str(), nameOf(plan).c_str());
    else if (progress == Progress::Pending)
      isDone = carryOut(logger, accounts, update, plan) && isDone;
  }
  if (isDone)
    privateLog.closePlan(plan);
}

}  // namespace

std::vector<PlannedUpdate> accountUpdates(const AccountFiles& accounts) {
  std::vector<PlannedUpdate> updates;
  appendGroupUpdates(updates, accounts.groups);
  appendUserUpdates(updates, accounts.users);
  return updates;
}

void updateAccountFiles(const orvs::LoggerPtr& logger, const AccountFiles& accounts) {
  const std::vector<PlannedUpdate> updates = accountUpdates(accounts);
  if (updates.empty())
    return;
  const std::optional<AccountPlan> plan = privateLog.planAccountUpdates(updates);
  if (!plan) {
    for (const PlannedUpdate& update : updates)
      reportFailed(logger, update);
    return;
  }
  bool isDone = true;
  for (const PlannedUpdate& update : plan->updates) {
    if (interrupt::pending() != 0)
      return;
    isDone = carryOut(logger, accounts, update, *plan) && isDone;
  }
  if (isDone)
    privateLog.closePlan(*plan);
}

void finishOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts) {
  for (const AccountPlan& plan : privateLog.openPlans()) {
    if (interrupt::pending() == 0)
      finishPlan(logger, accounts, plan);
  }
}

void seeAccountsAsPlanned(const AccountFiles& accounts) {
  std::map<AccountName, std::vector<const PlannedUpdate*>> byName;
  for (const AccountPlan& plan : privateLog.openPlans()) {
    for (const PlannedUpdate& update : plan.updates)
      byName[{update.isGroup, update.name}].push_back(&update);
  }
  if (byName.empty())
    return;
  const auto planned = [&](bool isGroup, const std::string& name, OwnerIds present) {
    const auto found = byName.find({isGroup, name});
    if (found == byName.end())
      return present;
    for (const PlannedUpdate* update : found->second)
      present = present == update->oldIds ? update->newIds : present;
    return present;
  };
  for (orvs::DBGroup* group : accounts.groups.getEntries())
    group->gid = planned(true, group->name, idsOf(*group)).gid;
  for (orvs::DBPasswd* user : accounts.users.getEntries()) {
    const OwnerIds ids = planned(false, user->name, idsOf(*user));
    user->uid = ids.uid;
    user->gid = ids.gid;
  }
}

KeptIds::KeptIds(const AccountFiles& accounts) {
  for (orvs::DBPasswd* user : accounts.users.getEntries())
    users.emplace_back(user, idsOf(*user));
  for (orvs::DBGroup* group : accounts.groups.getEntries())
    groups.emplace_back(group, idsOf(*group));
}

KeptIds::~KeptIds() {
  for (const auto& [user, ids] : users) {
    user->uid = ids.uid;
    user->gid = ids.gid;
  }
  for (const auto& [group, ids] : groups)
    group->gid = ids.gid;
}

void reportOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts) {
  if (privateLog.openPlans().empty())
    return;
  const PresentIds present(accounts);
  for (const AccountPlan& plan : privateLog.openPlans()) {
    const auto count =
        std::count_if(plan.updates.begin(), plan.updates.end(), [&](const PlannedUpdate& update) {
          return progressOf(present, update) == Progress::Pending;
        });
    if (count > 0)
      TELL(Echo::Stderr,
           "%ld account update(s) of the conversion from %s are still to be made: run --commit-all "
           "again.",
           static_cast<long>(count), nameOf(plan).c_str());
  }
}
