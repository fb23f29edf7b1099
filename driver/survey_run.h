// A survey: what an administrator looks at before a conversion.
//
// Walks the trees as a dry run with --verbose would and looks at the machine besides, on finished
// maps; writes one table, or JSON, to standard output. Changes nothing anywhere.
#pragma once

#include "accountdb/passwdDB.h"
#include "services/command_options.h"
#include "services/logger.h"

// Returns 0 whatever is found, and the walk's status when a directory that was named cannot be
// walked; everything else is told all the same. After a signal nothing is printed. Throws what
// orvs::LocalRpcSession throws.
int runSurvey(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              orvs::PasswdDB& passwdDB,
              orvs::GroupDB& groupDB);
