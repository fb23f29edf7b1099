#include "idmap/user_map.h"

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

// Required: unlike the group pass, this pass prints ids widened with their sign, so 4294967294 is
// printed as 18446744073709551614. Its traces are compared with those of earlier releases.
unsigned long shown(uint32_t id) {
  return static_cast<unsigned long>(static_cast<long>(static_cast<int32_t>(id)));
}

std::string zoneNameFor(const std::string& localName, const MapTrace& trace) {
  const auto found = userNameMap.find(localName);
  if (found == userNameMap.end()) {
    MAP_TRACE(trace, usual, "Username [%s]", localName.c_str());
    return localName;
  }
  MAP_TRACE(trace, usual, "Username [%s]   MAPPED:[%s]", localName.c_str(), found->second.c_str());
  return found->second;
}

// The zone's user whose Unix name is `name`, byte for byte. The agent also finds an account by
// other names, such as its directory name; such an answer counts as a miss.
boost::shared_ptr<orvs::ZoneUser> userOfUnixName(ZoneLookup& zone,
                                                 const std::string& name,
                                                 const MapTrace& trace) {
  auto user = zone.user(name);
  if (!user || user->unixName == name)
    return user;
  MAP_TRACE(trace, usual, "  User Matched AD-name, not Unix, IGNORING. Local: %s   zone-unix: %s",
            name.c_str(), user->unixName.c_str());
  return nullptr;
}

// The user is in the zone, with the Unix name `zone.unixName`. The primary gids are kept even if
// the uid does not change. The primary group itself is not judged here.
void followZone(const orvs::DBPasswd& local, const orvs::ZoneUser& zone, const MapTrace& trace) {
  MAP_TRACE(trace, usual, "  Found in zone local ID(%lu) zone(%lu)", shown(local.uid),
            shown(zone.uid));
  if (local.uid != zone.uid) {
    MAP_TRACE(trace, usual, "  Adding UID Map[%lu] -> %lu", shown(local.uid), shown(zone.uid));
    uidMap[local.uid] = zone.uid;
    userConflicts[local.uid] = zoneIdRecord(local.name, local.uid, zone.unixName, zone.uid);
  }
  userZoneGid[local.uid] = zone.gid;
  userLocalGid[local.uid] = local.gid;
}

// Moves a user whose name is not in the zone, because the zone user `holder` has the uid.
void giveUidWay(const orvs::DBPasswd& local, const orvs::ZoneUser& holder, const MapTrace& trace) {
  if (uidMap.contains(local.uid)) {
    MAP_TRACE(trace, usual, "  Found in Zone ... Ignoring: uid is already mapped");
    return;
  }
  MAP_TRACE(trace, usual, "  Found in Zone ... mapping to new-uid");
  const uint32_t newUid = mapToSpareId(local.uid, true, trace.options);
  userConflicts[local.uid] = newIdRecord(local.name, local.uid, holder.unixName, newUid);
}

// Judges the uid of a user whose name is not in the zone. A uid that no zone user has stays as it
// is.
void judgeUid(ZoneLookup& zone, const orvs::DBPasswd& local, const MapTrace& trace) {
  MAP_TRACE(trace, extra, "  Not found looking up uid(%lu) in zone...", shown(local.uid));
  if (const auto holder = zone.user(local.uid))
    giveUidWay(local, *holder, trace);
}

// Moves a gid that no local group has, because the zone group `holder` has it.
void giveGidWay(uint32_t gid, const orvs::ZoneGroup& holder, const MapTrace& trace) {
  if (gidMap.contains(gid)) {
    MAP_TRACE(trace, usual, "  Found in Zone ... Ignoring: gid is already mapped\n");
    return;
  }
  MAP_TRACE(trace, usual, "  Found in Zone ... mapping to new-gid");
  const uint32_t newGid = mapToSpareId(gid, false, trace.options);
  // Required: an empty local name tells the conflict tables that no local group has the gid.
  groupConflicts[gid] = newIdRecord("", gid, holder.name, newGid);
}

// Judges the primary gid of a user whose name is not in the zone. The group pass has judged the
// gids of local groups. Another gid means something only in the zone.
void judgePrimaryGid(ZoneLookup& zone, orvs::GroupDB& groups, uint32_t gid, const MapTrace& trace) {
  MAP_TRACE(trace, extra, "  Looking up gid(%lu) ...\n", shown(gid));
  if (groups.findByGid(gid) != nullptr) {
    MAP_TRACE(trace, extra, "  Found in local database ... Ignoring\n");
    return;
  }
  if (const auto holder = zone.group(gid))
    giveGidWay(gid, *holder, trace);
  else
    MAP_TRACE(trace, extra, "  Not found in zone...");
}

void judgeUser(ZoneLookup& zone,
               orvs::GroupDB& groups,
               const orvs::DBPasswd& local,
               const MapTrace& trace) {
  if (isIgnoredUser(local.name.c_str())) {
    MAP_TRACE(trace, extra, "Ignoring User: %s", local.name.c_str());
    return;
  }
  if (const auto match = userOfUnixName(zone, zoneNameFor(local.name, trace), trace)) {
    followZone(local, *match, trace);
    return;
  }
  judgeUid(zone, local, trace);
  judgePrimaryGid(zone, groups, local.gid, trace);
}

}  // namespace

int CreateIdMaps(orvs::PasswdDB& users, orvs::GroupDB& groups, const CommandOptions& options) {
  const MapTrace trace{getLogger("cli.idshift", false), __func__, options};
  ZoneLookup zone;
  for (const orvs::DBPasswd* user : users.getEntries()) {
    if (interrupt::pending() != 0)
      break;
    judgeUser(zone, groups, *user, trace);
  }
  return 0;
}
