// The group pass: decides which local gids change, one local group after the other.
//
// A group whose name is in the zone gets the zone's gid. A group whose name is not in the zone
// keeps its gid, unless a zone group has that gid; then it moves to a spare one. Fills gidMap and
// groupConflicts. Runs after the name maps are loaded and before CreateIdMaps. Sends at most two
// requests to the agent for each group, beside those of findSpareId; never lists the zone's groups.
#pragma once

#include "services/command_options.h"

namespace orvs {
class GroupDB;
}

// Returns 0, also when a signal ended the pass early (interrupt::pending() tells). Throws what
// findSpareId and orvs::LocalRpcSession throw, but for a miss.
int CreateGroupMaps(orvs::GroupDB& groups, const CommandOptions& options);
