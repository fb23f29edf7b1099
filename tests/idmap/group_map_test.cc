#include "idmap/group_map.h"

#include <gtest/gtest.h>

#include "tests/idmap/mapping_world.h"

class GroupMap : public SandboxTest {};

TEST_F(GroupMap, Worlds) {
  const World worlds[] = {
      {"nothing local", {}, {}, {}, {{"dev", 7100}}, {}},
      {"same gid", {}, {{"dev", 100}}, {}, {{"dev", 100}}, {}},
      {"other gid", {}, {{"dev", 100}}, {}, {{"dev", 7100}}, {"gid 100 -> 7100: dev is dev"}},
      {"through the name map",
       {},
       {{"dev", 100}},
       {},
       {{"dev", 9999}, {"devz", 7100}},
       {"gid 100 -> 7100: dev is devz"},
       {},
       {{"dev", "devz"}, {"Dev", "dev"}}},
      {"mapped to a name that is not in the zone",
       {},
       {{"dev", 100}, {"ops", 200}},
       {},
       {{"dev", 7100}, {"other", 100}},
       {"gid 100 -> 50100: dev yields to other"},
       {},
       {{"dev", "gone"}}},
      {"the zone answers with another spelling, and is believed",
       {},
       {{"dev", 100}},
       {},
       {{"Dev", 7100, "dev"}},
       {"gid 100 -> 7100: dev is Dev"}},
      {"unknown by name, free or foreign gid",
       {},
       {{"dev", 100}, {"ops", 200}},
       {},
       {{"other", 200}},
       {"gid 200 -> 50200: ops yields to other"}},
      {"two names of one gid in the zone: the later line wins",
       {},
       {{"one", 100}, {"two", 100}},
       {},
       {{"one", 7001}, {"two", 7002}},
       {"gid 100 -> 7002: two is two"}},
      {"a name in the zone overwrites a spare gid",
       {},
       {{"stray", 100}, {"dev", 100}},
       {},
       {{"other", 100}, {"dev", 7100}},
       {"gid 100 -> 7100: dev is dev"}},
      {"a stray name leaves a mapped gid in place",
       {},
       {{"dev", 100}, {"stray", 100}},
       {},
       {{"other", 100}, {"dev", 7100}},
       {"gid 100 -> 7100: dev is dev"}},
      {"two strays of one gid: the first record stays",
       {},
       {{"one", 100}, {"two", 100}},
       {},
       {{"other", 100}},
       {"gid 100 -> 50100: one yields to other"}},
      {"two groups become one",
       {},
       {{"one", 100}, {"two", 101}},
       {},
       {{"one", 7001}},
       {"gid 100 -> 7001: one is one", "gid 101 -> 7001: two is one"},
       {},
       {{"two", "one"}}},
      {"a new gid that is another local group's",
       {},
       {{"one", 100}, {"two", 101}},
       {},
       {{"one", 101}},
       {"gid 100 -> 101: one is one", "gid 101 -> 50101: two yields to one"}},
      {"gids beyond 2^31",
       {},
       {{"dev", 4294967294u}},
       {},
       {{"dev", 4000000000u}},
       {"gid 4294967294 -> 4000000000: dev is dev"}}};
  for (const World& world : worlds) {
    SCOPED_TRACE(world.about);
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(mapsAsText(), world.expected);
  }
}
