#include "driver/merge_check.h"

#include <map>

#include "idmap/id_maps.h"

namespace {

// An account as it will be.
struct FutureAccount {
  std::string name;
  uint32_t oldId = 0;
  std::string zoneName;  // the zone account whose id it gets; empty: none
};

struct Kind {
  const char* plural;
  const char* singular;
  const char* id;
  const IdMap& ids;
  const ConflictMap& conflicts;
};

uint32_t futureId(const Kind& kind, uint32_t id) {
  const auto found = kind.ids.find(id);
  return found == kind.ids.end() ? id : found->second;
}

std::string zoneNameOf(const Kind& kind, const std::string& name, uint32_t id) {
  const auto found = kind.conflicts.find(id);
  const bool follows = found != kind.conflicts.end() && found->second.localName == name &&
                       found->second.resolution == RESOLUTION_USE_ZONE_ID;
  return follows ? found->second.zoneName : std::string();
}

// Judges two accounts with different ids that would have one id. Two names of one zone account only
// cause a warning: whoever wrote the name map wants that.
void judgePair(const Kind& kind,
               uint32_t id,
               const FutureAccount& a,
               const FutureAccount& b,
               MapDoubts& doubts) {
  if (a.oldId == b.oldId)
    return;
  const std::string both = std::string(kind.plural) + " " + a.name + " and " + b.name;
  const std::string shared = std::string(kind.id) + " " + std::to_string(id);
  if (!a.zoneName.empty() && a.zoneName == b.zoneName)
    doubts.warnings.push_back(both + " are both " + kind.singular + " " + a.zoneName +
                              " of the zone: they will share " + shared);
  else
    doubts.refusals.push_back(both + " would share " + shared);
}

// Text behind the digits of an id is ignored, and an id without digits counts as 0. If another
// account really has that number as its id, that account's files would be given away.
void judgeId(const Kind& kind, const orvs::DBEntry& entry, uint32_t id, MapDoubts& doubts) {
  if (entry.hasPlainId || !kind.ids.contains(id))
    return;
  doubts.refusals.push_back(std::string("the ") + kind.id + " of " + kind.singular + " " +
                            entry.name + " is no plain number: it counts as " + std::to_string(id) +
                            " and would become " + std::to_string(futureId(kind, id)));
}

template <class Entry>
void judge(const Kind& kind,
           const std::list<Entry*>& entries,
           uint32_t Entry::*idOf,
           MapDoubts& doubts) {
  std::map<uint32_t, FutureAccount> firstWith;
  for (const Entry* entry : entries) {
    const uint32_t oldId = entry->*idOf;
    judgeId(kind, *entry, oldId, doubts);
    const FutureAccount future = {entry->name, oldId, zoneNameOf(kind, entry->name, oldId)};
    const uint32_t id = futureId(kind, oldId);
    const auto [first, isNew] = firstWith.try_emplace(id, future);
    if (!isNew)
      judgePair(kind, id, first->second, future, doubts);
  }
}

// An account of the zone may be called root, or a local account have root's id.
void judgeRoot(const Kind& kind, MapDoubts& doubts) {
  const auto found = kind.ids.find(0);
  if (found == kind.ids.end())
    return;
  const auto conflict = kind.conflicts.find(0);
  const std::string name =
      conflict == kind.conflicts.end() ? std::string() : conflict->second.localName;
  doubts.refusals.push_back(std::string("root's ") + kind.id + " 0 would become " +
                            std::to_string(found->second) + " (" + kind.singular + " " + name +
                            ")");
}

}  // namespace

MapDoubts findDoubts(const AccountFiles& accounts) {
  MapDoubts doubts;
  if (uidMap.empty() && gidMap.empty())
    return doubts;
  const Kind users = {"users", "user", "uid", uidMap, userConflicts};
  const Kind groups = {"groups", "group", "gid", gidMap, groupConflicts};
  judge<orvs::DBPasswd>(users, accounts.users.getEntries(), &orvs::DBPasswd::uid, doubts);
  judge<orvs::DBGroup>(groups, accounts.groups.getEntries(), &orvs::DBGroup::gid, doubts);
  judgeRoot(users, doubts);
  judgeRoot(groups, doubts);
  if (userZoneGid.empty())
    doubts.refusals.emplace_back(
        "there are conflicts, but not one local user is in the zone by name");
  return doubts;
}
