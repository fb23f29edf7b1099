// Whether this machine has joined a domain. Every mode that compares accounts asks this first.
#pragma once

#include <iosfwd>

#include "services/logger.h"

// Returns true when the machine is joined. Otherwise logs "Machine is not joined to any domain." at
// level 5, writes the same text and a line end to `errorStream`, and returns false. Nothing is
// written to a stream that is null or has failed.
bool machineJoined(const orvs::LoggerPtr& logger, std::ostream* errorStream);
