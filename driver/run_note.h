// One line in the system log for each run that may have changed something: who ran it, on what, how
// much changed.
#pragma once

#include "services/command_options.h"
#include "services/logger.h"

// Logs at a level that the default settings show; names of directories are quoted. Call it when a
// commit or an undo that was not pretended has ended with `status`.
void noteRun(const orvs::LoggerPtr& logger, const CommandOptions& options, int status);
