// The decisions of both passes, and the record of each: values in, values out.
//
// An account whose name the zone knows takes the zone's id. An account whose name the zone does not
// know keeps its id, unless a foreign zone account holds it. Used for users and groups alike.
#pragma once

#include <cstdint>
#include <string>

#include "idmap/id_maps.h"

enum class Verdict {
  Keep,         // both sides agree
  UseZoneId,    // over any mapping made before
  AssignNewId,  // the id is a foreign account's
  KeepMapping,  // the id is a foreign account's, but it has been judged before
};

// For an account found in the zone by its name.
Verdict judgeMatched(uint32_t localId, uint32_t zoneId);

// For an account unknown by name whose id a zone account holds; `mapped` is the map so far.
Verdict judgeForeign(const IdMap& mapped, uint32_t localId);

// The records that explain the mappings of UseZoneId and AssignNewId.
ConflictRecord zoneIdRecord(const std::string& localName,
                            uint32_t localId,
                            const std::string& zoneName,
                            uint32_t zoneId);
ConflictRecord newIdRecord(const std::string& localName,
                           uint32_t localId,
                           const std::string& foreignName,
                           uint32_t newId);
