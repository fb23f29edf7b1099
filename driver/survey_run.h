// A survey: what an administrator should look at before a conversion.
//
// Uses the finished maps. Walks the trees and looks at the machine, then writes one table, or JSON,
// to standard output. Changes nothing.
#pragma once

#include "accountdb/passwdDB.h"
#include "services/command_options.h"
#include "services/logger.h"

// Returns 0 whatever was found. When a named directory cannot be walked, returns the status of that
// walk, and still prints all other findings. Prints nothing after a signal. Throws what
// orvs::LocalRpcSession throws.
int runSurvey(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              orvs::PasswdDB& passwdDB,
              orvs::GroupDB& groupDB);
