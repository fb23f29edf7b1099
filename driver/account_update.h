// The last step of --commit-all: the local account files follow the id maps.
//
// Groups first, in ascending old gid, then users in file order; one rewrite of the file for each
// account. A record goes into the private log after an update has succeeded and never before, so
// the log holds exactly the updates that took place. A failed update is reported and passed over.
// Member lists, passwords and all other fields stay as they are.
#pragma once

#include <list>

#include "accountdb/passwdDB.h"
#include "services/logger.h"

// `groups` and `users` are the live entries of the two databases, in file order. Ends between two
// accounts when a signal is pending.
void updateAccountFiles(const orvs::LoggerPtr& logger,
                        orvs::GroupDB& groupDB,
                        const std::list<orvs::DBGroup*>& groups,
                        orvs::PasswdDB& passwdDB,
                        const std::list<orvs::DBPasswd*>& users);
