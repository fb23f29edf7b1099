// The last step of --commit-all: the local account files follow the id maps.
//
// Groups first, in ascending old gid, then users in file order; one rewrite of the file for each
// account. The record of an update is prepared before it, on the disk but invisible, and becomes a
// line of the private log after it, so the log holds exactly the updates that took place. A failed
// update is reported and passed over.
// Member lists, passwords and all other fields stay as they are.
#pragma once

#include "accountdb/passwdDB.h"
#include "services/logger.h"

// An update writes through to the entries of the databases. Ends between two accounts when a signal
// is pending.
void updateAccountFiles(const orvs::LoggerPtr& logger,
                        orvs::GroupDB& groupDB,
                        orvs::PasswdDB& passwdDB);
