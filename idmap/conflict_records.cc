#include "idmap/conflict_records.h"

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
