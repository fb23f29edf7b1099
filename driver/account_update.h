// Changes the account files as the id maps say: the last step of --commit-all. Also finishes, as
// the first step, what an interrupted --commit-all has left.
//
// Groups come first, in ascending old gid, then users in the order of the file. Each account is one
// rewrite of its file. All updates are written to the index of the log as a plan before the first
// one is made. Each becomes a line of the log after it was made, so the log holds exactly the
// updates that took place. A failed update is reported and passed over; the plan keeps it for the
// next --commit-all. Member lists, passwords and all other fields stay as they are.
#pragma once

#include <utility>
#include <vector>

#include "accountdb/passwdDB.h"
#include "privatelog/account_plan.h"
#include "services/logger.h"

// The account files of this machine, as loaded.
struct AccountFiles {
  orvs::PasswdDB& users;
  orvs::GroupDB& groups;
};

// The updates that updateAccountFiles is going to make, in its order.
std::vector<PlannedUpdate> accountUpdates(const AccountFiles& accounts);

// Makes the updates that the maps ask for, in the files and in the entries of the databases. Ends
// between two accounts when a signal is pending.
void updateAccountFiles(const orvs::LoggerPtr& logger, const AccountFiles& accounts);

// Makes the updates that the plans of former runs still lack. An account that has neither the old
// nor the new ids is reported and left. Closes a plan of which nothing is left.
void finishOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts);

// Gives the entries of the databases, not the files, the ids that the open plans give them. The
// conversion is then seen as if it had not been interrupted.
void seeAccountsAsPlanned(const AccountFiles& accounts);

// Keeps the ids of all entries, and restores them in the destructor. For a look at the accounts as
// planned, before the plans are carried out.
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

// Prints, for each open plan, how many of its updates are still to be made.
void reportOpenPlans(const orvs::LoggerPtr& logger, const AccountFiles& accounts);
