// Makes the records that explain why an id changes. Pure.
#pragma once

#include <cstdint>
#include <string>

#include "idmap/id_maps.h"

// For an account whose name is in the zone, with another id.
ConflictRecord zoneIdRecord(const std::string& localName,
                            uint32_t localId,
                            const std::string& zoneName,
                            uint32_t zoneId);

// For an account whose name is not in the zone, while the zone's account `foreignName` has its id.
ConflictRecord newIdRecord(const std::string& localName,
                           uint32_t localId,
                           const std::string& foreignName,
                           uint32_t newId);
