#include "idmap/user_map.h"

#include <string>

#include "accountdb/passwdDB.h"
#include "idmap/id_maps.h"
#include "idmap/map_trace.h"
#include "idmap/nss_utils.h"
#include "idmap/spare_id.h"
#include "idmap/verdict.h"
#include "services/exceptions.h"
#include "services/interrupt.h"
#include "services/local_rpc_session.h"
#include "services/paths.h"

namespace {

constexpr int kGroupFlags = orvs::UNIX_ONLY | orvs::GROUP_MEMBERSHIP;

using ZoneUserPtr = boost::shared_ptr<orvs::ZoneUser>;
using ZoneGroupPtr = boost::shared_ptr<orvs::ZoneGroup>;

// Required: this pass, unlike the group pass, prints ids widened with their sign, so that
// 4294967294 reads 18446744073709551614; its traces are compared with those of earlier releases.
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

// The zone's user whose Unix name is `name`, byte for byte. The agent also answers to other names
// of an account, such as its directory name; such an answer is a miss like any other.
ZoneUserPtr zoneUserByName(orvs::LocalRpcSession& session,
                           const std::string& name,
                           const MapTrace& trace) {
  ZoneUserPtr user = session.getUser(name, orvs::UNIX_ONLY);
  if (user->unixName == name)
    return user;
  MAP_TRACE(trace, usual, "  User Matched AD-name, not Unix, IGNORING. Local: %s   zone-unix: %s",
            name.c_str(), user->unixName.c_str());
  throw orvs::NotFoundException("cli_idshift", __LINE__, "User not found",
                                "orvs::NotFoundException", 0);
}

// The user is in the zone, under the Unix name `zone.unixName`. The primary gids are remembered
// even if the uid stays. The primary group itself is not judged here.
void followZone(const orvs::DBPasswd& local, const orvs::ZoneUser& zone, const MapTrace& trace) {
  MAP_TRACE(trace, usual, "  Found in zone local ID(%lu) zone(%lu)", shown(local.uid),
            shown(zone.uid));
  if (judgeMatched(local.uid, zone.uid) == Verdict::UseZoneId) {
    MAP_TRACE(trace, usual, "  Adding UID Map[%lu] -> %lu", shown(local.uid), shown(zone.uid));
    uidMap[local.uid] = zone.uid;
    userConflicts[local.uid] = zoneIdRecord(local.name, local.uid, zone.unixName, zone.uid);
  }
  userZoneGid[local.uid] = zone.gid;
  userLocalGid[local.uid] = local.gid;
}

// True when the user is in the zone and has been judged by that.
bool judgedByName(orvs::LocalRpcSession& session,
                  const orvs::DBPasswd& local,
                  const MapTrace& trace) {
  const std::string name = zoneNameFor(local.name, trace);
  try {
    followZone(local, *zoneUserByName(session, name, trace), trace);
    return true;
  } catch (const orvs::NotFoundException&) {
    return false;
  }
}

// The user is not in the zone, but the foreign zone user `holder` has the uid.
void giveUidWay(const orvs::DBPasswd& local, const orvs::ZoneUser& holder, const MapTrace& trace) {
  if (judgeForeign(uidMap, local.uid) == Verdict::KeepMapping) {
    MAP_TRACE(trace, usual, "  Found in Zone ... Ignoring: uid is already mapped");
    return;
  }
  MAP_TRACE(trace, usual, "  Found in Zone ... mapping to new-uid");
  const uint32_t newUid = mapToSpareId(local.uid, true, trace.options);
  userConflicts[local.uid] = newIdRecord(local.name, local.uid, holder.unixName, newUid);
}

void judgeUid(orvs::LocalRpcSession& session, const orvs::DBPasswd& local, const MapTrace& trace) {
  MAP_TRACE(trace, extra, "  Not found looking up uid(%lu) in zone...", shown(local.uid));
  try {
    giveUidWay(local, *session.getUser(local.uid, orvs::UNIX_ONLY), trace);
  } catch (const orvs::NotFoundException&) {
    // The uid is free in the zone and stays as it is.
  }
}

// No local group bears `gid`, but the zone group `holder` does.
void giveGidWay(uint32_t gid, const orvs::ZoneGroup& holder, const MapTrace& trace) {
  if (judgeForeign(gidMap, gid) == Verdict::KeepMapping) {
    MAP_TRACE(trace, usual, "  Found in Zone ... Ignoring: gid is already mapped\n");
    return;
  }
  MAP_TRACE(trace, usual, "  Found in Zone ... mapping to new-gid");
  const uint32_t newGid = mapToSpareId(gid, false, trace.options);
  // Required: the empty local name tells the conflict tables that no local group bears the gid.
  groupConflicts[gid] = newIdRecord("", gid, holder.name, newGid);
}

// The primary group of a user who is not in the zone. A local group has been judged by the group
// pass; what is left is a gid that only the zone gives a meaning to.
void judgePrimaryGid(orvs::LocalRpcSession& session,
                     orvs::GroupDB& groups,
                     uint32_t gid,
                     const MapTrace& trace) {
  MAP_TRACE(trace, extra, "  Looking up gid(%lu) ...\n", shown(gid));
  if (groups.findByGid(gid) != nullptr) {
    MAP_TRACE(trace, extra, "  Found in local database ... Ignoring\n");
    return;
  }
  try {
    giveGidWay(gid, *session.getGroup(gid, kGroupFlags), trace);
  } catch (const orvs::NotFoundException&) {
    MAP_TRACE(trace, extra, "  Not found in zone...");
  }
}

void judgeUser(orvs::LocalRpcSession& session,
               orvs::GroupDB& groups,
               const orvs::DBPasswd& local,
               const MapTrace& trace) {
  if (isIgnoredUser(local.name.c_str())) {
    MAP_TRACE(trace, extra, "Ignoring User: %s", local.name.c_str());
    return;
  }
  if (judgedByName(session, local, trace))
    return;
  judgeUid(session, local, trace);
  judgePrimaryGid(session, groups, local.gid, trace);
}

}  // namespace

int CreateIdMaps(orvs::PasswdDB& users, orvs::GroupDB& groups, const CommandOptions& options) {
  const MapTrace trace{getLogger("cli.idshift", false), __func__, options};
  orvs::LocalRpcSession session(paths::kAgentSocket, false, false);
  for (const orvs::DBPasswd* user : users.getEntries()) {
    if (interrupt::pending() != 0)
      break;
    judgeUser(session, groups, *user, trace);
  }
  return 0;
}
