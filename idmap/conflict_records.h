// The records that explain a mapping: values in, values out.
#pragma once

#include <cstdint>
#include <string>

#include "idmap/id_maps.h"

// The account's name is in the zone, with another id.
ConflictRecord zoneIdRecord(const std::string& localName,
                            uint32_t localId,
                            const std::string& zoneName,
                            uint32_t zoneId);

// The account's name is not in the zone, and the zone's `foreignName` holds its id.
ConflictRecord newIdRecord(const std::string& localName,
                           uint32_t localId,
                           const std::string& foreignName,
                           uint32_t newId);
