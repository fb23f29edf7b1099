#include "idmap/group_map.h"

#include <string>

#include "accountdb/passwdDB.h"
#include "idmap/conflict_records.h"
#include "idmap/id_maps.h"
#include "idmap/map_trace.h"
#include "idmap/nss_utils.h"
#include "idmap/spare_id.h"
#include "idmap/zone_lookup.h"
#include "services/interrupt.h"

namespace {

// The traces of this pass print ids unchanged. Those of the user pass widen ids.
unsigned long shown(uint32_t id) {
  return id;
}

std::string zoneNameFor(const std::string& localName, const MapTrace& trace) {
  const auto found = groupNameMap.find(localName);
  if (found == groupNameMap.end()) {
    MAP_TRACE(trace, usual, "Groupname [%s]", localName.c_str());
    return localName;
  }
  MAP_TRACE(trace, usual, "Groupname [%s]   MAPPED:[%s]", localName.c_str(), found->second.c_str());
  return found->second;
}

// Maps the gid of a group whose name is in the zone to the zone's gid. The agent may have found the
// group by another of its names; the group pass does not compare spellings.
void followZone(const orvs::DBGroup& local, const orvs::ZoneGroup& zone, const MapTrace& trace) {
  if (local.gid == zone.gid)
    return;
  MAP_TRACE(trace, usual, "  Found in Zone ... mapping %lu to %lu", shown(local.gid),
            shown(zone.gid));
  gidMap[local.gid] = zone.gid;
  groupConflicts[local.gid] = zoneIdRecord(local.name, local.gid, zone.name, zone.gid);
}

// Moves a group whose name is not in the zone, because the zone group `holder` has its gid.
void giveWay(const orvs::DBGroup& local, const orvs::ZoneGroup& holder, const MapTrace& trace) {
  MAP_TRACE(trace, usual, "  Name not in zone, but gid(%lu) found in Zone ...", shown(local.gid));
  if (gidMap.contains(local.gid)) {
    MAP_TRACE(trace, usual, "Ignoring: gid is already mapped");
    return;
  }
  MAP_TRACE(trace, usual, "mapping to new-gid");
  const uint32_t newGid = mapToSpareId(local.gid, false, trace.options);
  groupConflicts[local.gid] = newIdRecord(local.name, local.gid, holder.name, newGid);
}

// One group: ignored, or found in the zone by name, or else looked up by gid. The name decides
// first, because a zone group of the same name is the same group, whatever its gid.
void judgeGroup(ZoneLookup& zone, const orvs::DBGroup& local, const MapTrace& trace) {
  if (ignoreGroup(local.name.c_str())) {
    MAP_TRACE(trace, extra, "Ignoring Group: %s", local.name.c_str());
    return;
  }
  if (const auto match = zone.group(zoneNameFor(local.name, trace))) {
    followZone(local, *match, trace);
    return;
  }
  MAP_TRACE(trace, extra, "  Looking up gid(%lu) in zone...", shown(local.gid));
  if (const auto holder = zone.group(local.gid))
    giveWay(local, *holder, trace);
  else
    MAP_TRACE(trace, extra, "  Not found in zone...");
}

}  // namespace

int CreateGroupMaps(orvs::GroupDB& groups, const CommandOptions& options) {
  const MapTrace trace{getLogger("cli.idshift", false), __func__, options};
  ZoneLookup zone;
  for (const orvs::DBGroup* group : groups.getEntries()) {
    if (interrupt::pending() != 0)
      break;
    judgeGroup(zone, *group, trace);
  }
  return 0;
}
