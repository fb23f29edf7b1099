// The user pass: decides which local uids change, one local user after the other.
//
// A user whose name is in the zone gets the zone's uid, and both primary gids are kept for
// new_ids.h. A user whose name is not in the zone keeps the uid, unless a zone user has it; then
// the user moves to a spare one. The primary gid of a user who is not in the zone is judged too,
// unless a local group has it. Fills uidMap, userConflicts, userZoneGid and userLocalGid, and adds
// to gidMap and groupConflicts. Runs after CreateGroupMaps. Sends at most three requests to the
// agent for each user, beside those of findSpareId.
#pragma once

#include "services/command_options.h"

namespace orvs {
class GroupDB;
class PasswdDB;
}  // namespace orvs

// Returns 0, also when a signal ended the pass early (interrupt::pending() tells). Throws what
// findSpareId and orvs::LocalRpcSession throw, but for a miss. Of `groups` only findByGid() is
// used.
int CreateIdMaps(orvs::PasswdDB& users, orvs::GroupDB& groups, const CommandOptions& options);
