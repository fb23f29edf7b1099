// The tables from old ids to new ids, and the reason of each change.
//
// Eight ordered maps for the whole program. The name maps are loaded first. CreateGroupMaps and
// then CreateIdMaps fill the others, each once a run. After that no code changes a map. Ids are
// unsigned 32-bit. Names compare byte by byte, case included. One thread, no lock.
//
// Every key of uidMap is a key of userConflicts, whose record has the map's value as newId. The
// same holds for gidMap and groupConflicts.
#pragma once

#include <cstdint>
#include <map>
#include <string>

enum : int32_t {
  RESOLUTION_NONE = 0,
  RESOLUTION_USE_ZONE_ID = 1,    // the account's name is in the zone, with another id
  RESOLUTION_ASSIGN_NEW_ID = 2,  // the name is not in the zone, another account has the id
};

// One id that has to change.
class ConflictRecord {
 public:
  ConflictRecord() = default;
  ConflictRecord(const ConflictRecord&) = default;
  ConflictRecord& operator=(const ConflictRecord&) = default;
  virtual ~ConflictRecord() = default;

  std::string localName;  // as in passwd or group; empty for a gid that no local group bears
  uint32_t localId = 0;   // the map's key
  std::string zoneName;   // the matching zone account, or the foreign one that holds the id
  uint32_t zoneId = 0;
  int32_t resolution = RESOLUTION_NONE;
  uint32_t newId = 0;
};

using IdMap = std::map<uint32_t, uint32_t>;
using NameMap = std::map<std::string, std::string>;
using ConflictMap = std::map<uint32_t, ConflictRecord>;

extern IdMap uidMap;        // old uid -> new uid
extern IdMap gidMap;        // old gid -> new gid
extern IdMap userZoneGid;   // local uid -> primary gid in the zone, for every user matched by name
extern IdMap userLocalGid;  // local uid -> gid field of the local passwd line, same population

extern NameMap userNameMap;   // local user name -> zone user name
extern NameMap groupNameMap;  // local group name -> zone group name

extern ConflictMap userConflicts;   // old uid -> why
extern ConflictMap groupConflicts;  // old gid -> why
