// The group pass: which local gids have to change, judged one local group at a time.
//
// A group whose name is in the zone takes the zone's gid. A group whose name is not in the zone
// moves, to a spare id, only when a zone group holds its gid. Fills gidMap and groupConflicts. Runs
// after the name maps are loaded and before CreateIdMaps. At most two agent requests a group,
// beside those of findSpareId; zone groups are never enumerated.
#pragma once

#include "services/command_options.h"

namespace orvs {
class GroupDB;
}

// Returns 0, also when a signal ended the pass early (interrupt::pending() tells). Lets through
// what findSpareId and orvs::LocalRpcSession throw, a miss excepted.
int CreateGroupMaps(orvs::GroupDB& groups, const CommandOptions& options);
