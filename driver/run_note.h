// One line in the system log for each run that may have changed something: who, where, how much.
#pragma once

#include "services/command_options.h"
#include "services/logger.h"

// Logged at a level that the default settings show; names of directories are quoted. For a commit
// or an undo that was not pretended, when it has ended with `status`.
void noteRun(const orvs::LoggerPtr& logger, const CommandOptions& options, int status);
