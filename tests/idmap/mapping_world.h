// A small world for the passes over the local accounts: local lines and zone accounts in, the maps
// and their records out, all as text.
// Local accounts never touch a file; the zone is a real agent on the fixed socket path.
#pragma once

#include <memory>
#include <string>

#include "idmap/id_maps.h"
#include "services/command_options.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"

// Accounts are separated by blanks. A user is name:uid:gid, a group name:gid. In the zone,
// asked=name:... also answers to the name `asked`. Name maps are local=zone.
struct World {
  const char* about = "";
  const char* users = "";
  const char* groups = "";
  const char* zoneUsers = "";
  const char* zoneGroups = "";
  const char* expected = "";  // see mapsAsText
  const char* userNames = "";
  const char* groupNames = "";
};

void clearMaps();

// The world's zone, started on the fixed socket.
std::unique_ptr<FakeZone> openZone(const World& world);

// Runs both passes on the world's local accounts and name maps.
void buildMaps(const World& world, const CommandOptions& options = {});

// The filled maps, in their order, joined with ", ":
//   uid 1000 -> 2000 ann is annz        by name (the zone id of the record has to be 2000)
//   gid 100 -> 50100 dev yields to ops  to a spare id (the zone id of the record has to be 100)
//   primary of 1000: 100 -> 7100
// A map entry and its record that do not fit together give an item that begins with "BROKEN".
std::string mapsAsText();
