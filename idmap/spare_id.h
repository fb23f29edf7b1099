// Spare ids: new ids that come neither from the account files nor from the zone.
//
// An account whose name is not in the zone, but whose id another account of the zone has, moves to
// a spare id of the range of --id. Its old id (the seed) chooses where the search begins, which
// spreads several accounts over the range. Nothing else keeps them apart, see findSpareId. Ids are
// unsigned 32-bit, both bounds of the range are inclusive, and low is at most high.
#pragma once

#include <cstdint>

#include "services/command_options.h"

// The order in which the ids of a range are tried: from a start that depends on the seed up to
// high, then from low up to the id before the start. Each id comes once. Pure.
class SpareIdScan {
 public:
  SpareIdScan(uint32_t seed, IdRange idRange);

  uint32_t candidate() const { return current; }

  // Goes to the next candidate; false when all ids of the range have been tried.
  bool advance();

 private:
  IdRange range;
  uint32_t start;
  uint32_t current;
};

// The first id of the scan that is not 4294967295, not a key of uidMap (for a group: gidMap), and
// not known to the zone for that kind of account. The seed must be a key already. Each call opens a
// connection to the agent. After a signal it returns the seed, which leaves the id as it is.
//
// Throws orvs::InvalidRangeException when every id is taken, and what orvs::LocalRpcSession throws.
uint32_t findSpareId(uint32_t seed, bool forUser, const CommandOptions& options);

// Maps `oldId` to a spare id, in uidMap or gidMap, and returns the spare id. `oldId` becomes a key
// before the search begins, so it cannot be found as spare. A search that throws leaves it mapped
// to 0.
uint32_t mapToSpareId(uint32_t oldId, bool forUser, const CommandOptions& options);
