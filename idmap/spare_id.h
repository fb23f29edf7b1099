// Spare ids: the only new ids that come neither from the account files nor from the zone.
//
// An account that is not in the zone, but whose id is, moves to a spare id of the range of --id.
// The old id (the seed) picks the place where the search begins, so that several accounts spread
// over the range; it is also the only thing that keeps them apart, see findSpareId. Ids are
// unsigned 32-bit, both bounds of the range are inclusive, and low is at most high.
#pragma once

#include <cstdint>

#include "services/command_options.h"

// The order in which the ids of a range are tried: from a start that depends on the seed up to
// high, then from low up to the id before the start. Each id comes once. Pure arithmetic.
class SpareIdScan {
 public:
  SpareIdScan(uint32_t seed, IdRange idRange);

  uint32_t candidate() const { return current; }

  // Goes to the next candidate; false when every id of the range has been one.
  bool advance();

 private:
  IdRange range;
  uint32_t start;
  uint32_t current;
};

// The first id of the scan that is neither 4294967295, nor a key of uidMap (of gidMap, for a
// group), nor known to the zone for that kind of account. The seed has to be a key already.
// Connects to the agent anew for each call. Interrupted by a signal, it answers with the seed: an
// id that stays what it is.
//
// Throws orvs::InvalidRangeException when every id is taken, and what orvs::LocalRpcSession throws.
uint32_t findSpareId(uint32_t seed, bool forUser, const CommandOptions& options);

// Maps `oldId` to a spare id, in uidMap or gidMap, and returns that. The old id is a key, and so
// not spare itself, before the search begins; a search that throws leaves it mapped to 0.
uint32_t mapToSpareId(uint32_t oldId, bool forUser, const CommandOptions& options);
