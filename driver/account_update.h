// The account files follow the id maps: the last step of --commit-all, and the first where an
// earlier one was cut short.
//
// Groups first, in ascending old gid, then users in file order; one rewrite of the file for each
// account. All updates are laid down as a plan before the first one is made, and each becomes a
// line of the private log after it was made, so the log holds exactly the updates that took place.
// A failed update is reported and passed over; the plan keeps it for the next --commit-all.
// Member lists, passwords and all other fields stay as they are.
#pragma once

#include <utility>
#include <vector>

#include "accountdb/passwdDB.h"
#include "privatelog/account_plan.h"
#include "services/logger.h"

// The databases that hold the account files of this machine.
struct AccountFiles {
  orvs::PasswdDB& users;
  orvs::GroupDB& groups;
};

// What updateAccountFiles is going to do, in its order.
std::vector<PlannedUpdate> accountUpdates(const AccountFiles& accounts);

// Brings the accounts in line with the maps. An update writes through to the entries of the
// databases. Ends between two accounts when a signal is pending.
void updateAccountFiles(const orvs::LoggerPtr& logger, const AccountFiles& accounts);

// Makes the updates of former runs' plans that were not made. An account that has neither the old
// nor the new ids is reported and left. A plan of which nothing is left is closed.
void finishOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts);

// Lets the entries of the databases, not the files, have the ids that the open plans give them: the
// conversion is seen as if its end had not been cut short.
void seeAccountsAsPlanned(const AccountFiles& accounts);

// Puts the ids of all entries back when it goes: for a look at the accounts as planned before the
// plans are taken up.
class KeptIds {
 public:
  explicit KeptIds(const AccountFiles& accounts);
  ~KeptIds();
  KeptIds(const KeptIds&) = delete;
  KeptIds& operator=(const KeptIds&) = delete;

 private:
  std::vector<std::pair<orvs::DBPasswd*, OwnerIds>> users;
  std::vector<std::pair<orvs::DBGroup*, OwnerIds>> groups;
};

// Says, for each open plan, how many of its updates are still to be made.
void reportOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts);
