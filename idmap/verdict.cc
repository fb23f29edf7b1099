#include "idmap/verdict.h"

Verdict judgeMatched(uint32_t localId, uint32_t zoneId) {
  return localId == zoneId ? Verdict::Keep : Verdict::UseZoneId;
}

Verdict judgeForeign(const IdMap& mapped, uint32_t localId) {
  return mapped.contains(localId) ? Verdict::KeepMapping : Verdict::AssignNewId;
}

ConflictRecord zoneIdRecord(const std::string& localName,
                            uint32_t localId,
                            const std::string& zoneName,
                            uint32_t zoneId) {
  ConflictRecord record;
  record.localName = localName;
  record.localId = localId;
  record.zoneName = zoneName;
  record.zoneId = zoneId;
  record.resolution = RESOLUTION_USE_ZONE_ID;
  record.newId = zoneId;
  return record;
}

ConflictRecord newIdRecord(const std::string& localName,
                           uint32_t localId,
                           const std::string& foreignName,
                           uint32_t newId) {
  ConflictRecord record;
  record.localName = localName;
  record.localId = localId;
  record.zoneName = foreignName;
  record.zoneId = localId;
  record.resolution = RESOLUTION_ASSIGN_NEW_ID;
  record.newId = newId;
  return record;
}
