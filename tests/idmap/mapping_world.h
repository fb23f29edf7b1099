// A small world for the passes over the local accounts: local lines and zone accounts in, the maps
// and their records out, as text.
//
// Local accounts never touch a file; the zone is a real agent on the fixed socket path, so the
// tests run in the sandbox. The maps are program-wide and are emptied before each run.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "idmap/id_maps.h"
#include "services/command_options.h"
#include "services/zone_records.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"

struct LocalUser {
  const char* name;
  uint32_t uid;
  uint32_t gid;
};

struct LocalGroup {
  const char* name;
  uint32_t gid;
};

// `askedAs` is a second name under which the zone also answers for the account.
struct ZoneUserRow {
  const char* unixName;
  uint32_t uid;
  uint32_t gid;
  const char* askedAs = nullptr;
};

struct ZoneGroupRow {
  const char* name;
  uint32_t gid;
  const char* askedAs = nullptr;
};

struct World {
  const char* about = "";
  std::vector<LocalUser> users = {};
  std::vector<LocalGroup> groups = {};
  std::vector<ZoneUserRow> zoneUsers = {};
  std::vector<ZoneGroupRow> zoneGroups = {};
  std::vector<std::string> expected = {};
  NameMap userNames = {};
  NameMap groupNames = {};
};

void clearMaps();

// The world's zone, started on the fixed socket.
std::unique_ptr<FakeZone> openZone(const World& world);

// Runs both passes on the world's local accounts and name maps.
void buildMaps(const World& world, const CommandOptions& options = {});

// The filled maps, one line an entry, in the order of the maps:
//   "uid 1000 -> 2000: ann is annz"        by name (the zone id of the record has to be 2000)
//   "gid 100 -> 50100: dev yields to ops"  to a spare id (the zone id of the record has to be 100)
//   "primary of 1000: 100 -> 7100"
// A map entry and its record that do not fit together make a line that begins with "BROKEN".
std::vector<std::string> mapsAsText();
