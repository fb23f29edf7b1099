// The check that comes before everything that compares accounts.
#pragma once

#include <iosfwd>

#include "services/logger.h"

// True when the machine is joined. Otherwise writes "Machine is not joined to any domain." and a
// line end to `errorStream`, when it is present and good, logs the text at level 5, and returns
// false.
bool machineJoined(const orvs::LoggerPtr& logger, std::ostream* errorStream);
