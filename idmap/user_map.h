// The user pass: which local uids have to change, judged one local user at a time.
//
// A user whose name is in the zone takes the zone's uid, and the primary gids of both sides are
// remembered. A user whose name is not in the zone moves, to a spare id, only when a zone user
// holds the uid; then the primary gid is looked at too, if no local group bears it. Fills uidMap,
// userConflicts, userZoneGid and userLocalGid and adds to gidMap and groupConflicts. Runs after
// CreateGroupMaps. At most three agent requests a user, beside those of findSpareId.
#pragma once

#include "services/command_options.h"

namespace orvs {
class GroupDB;
class PasswdDB;
}  // namespace orvs

// Returns 0, also when a signal ended the pass early (interrupt::pending() tells). Lets through
// what findSpareId and orvs::LocalRpcSession throw, a miss excepted. `groups` is asked by gid only.
int CreateIdMaps(orvs::PasswdDB& users, orvs::GroupDB& groups, const CommandOptions& options);
