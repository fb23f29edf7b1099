#include "idmap/spare_id.h"

#include "idmap/id_maps.h"
#include "idmap/zone_lookup.h"
#include "services/exceptions.h"
#include "services/interrupt.h"

namespace {

// No account can have this id: the system calls that set owners take it as "leave the id as it is".
constexpr uint32_t kNoId = UINT32_MAX;

// Required: the divisor is the distance of the bounds, not the number of ids, so no search begins
// at high. A run that continues an interrupted one gives an old id the same new id only if this
// start stays what it is.
uint32_t scanStart(uint32_t seed, IdRange range) {
  const uint32_t distance = range.high - range.low;
  return distance == 0 ? range.low : range.low + seed % distance;
}

bool knownToZone(ZoneLookup& zone, uint32_t id, bool forUser) {
  return forUser ? zone.user(id) != nullptr : zone.group(id) != nullptr;
}

}  // namespace

SpareIdScan::SpareIdScan(uint32_t seed, IdRange idRange)
    : range(idRange), start(scanStart(seed, idRange)), current(start) {}

bool SpareIdScan::advance() {
  current = current == range.high ? range.low : current + 1;
  return current != start;
}

// Required: the search looks neither at the values of the maps nor at the local account files. So
// it can return one id twice in a run, or an id that an unmapped local account has. The result must
// depend on the seed and the zone alone. When a run is continued, some accounts have their new ids
// already, and the others must get the ids that the interrupted run gave them.
uint32_t findSpareId(uint32_t seed, bool forUser, const CommandOptions& options) {
  ZoneLookup zone;
  const IdMap& oldIds = forUser ? uidMap : gidMap;
  SpareIdScan scan(seed, options.newIDRange);
  do {
    if (interrupt::pending() != 0)
      return seed;
    const uint32_t candidate = scan.candidate();
    if (candidate != kNoId && !oldIds.contains(candidate) && !knownToZone(zone, candidate, forUser))
      return candidate;
  } while (scan.advance());
  throw orvs::InvalidRangeException("cli_idshift", __LINE__, "ID-Range is not large enough",
                                    "orvs::InvalidRangeException", -1);
}

uint32_t mapToSpareId(uint32_t oldId, bool forUser, const CommandOptions& options) {
  uint32_t& newId = (forUser ? uidMap : gidMap)[oldId];
  newId = findSpareId(oldId, forUser, options);
  return newId;
}
