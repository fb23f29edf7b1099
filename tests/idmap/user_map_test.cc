#include "idmap/user_map.h"

#include <gtest/gtest.h>

#include "tests/idmap/mapping_world.h"

class UserMap : public SandboxTest {};

// ---- the uid

TEST_F(UserMap, Worlds) {
  const World worlds[] = {{"nothing local", {}, {}, {{"ann", 2000, 500}}, {}, {}},
                          {"same uid: only the primary gids are remembered",
                           {{"ann", 1000, 100}},
                           {},
                           {{"ann", 1000, 500}},
                           {{"other", 100}},
                           {"primary of 1000: 100 -> 500"}},
                          {"other uid",
                           {{"ann", 1000, 100}},
                           {},
                           {{"ann", 2000, 500}},
                           {},
                           {"uid 1000 -> 2000: ann is ann", "primary of 1000: 100 -> 500"}},
                          {"through the name map",
                           {{"ann", 1000, 100}},
                           {},
                           {{"ann", 9999, 500}, {"annz", 2000, 500}},
                           {},
                           {"uid 1000 -> 2000: ann is annz", "primary of 1000: 100 -> 500"},
                           {{"ann", "annz"}, {"Ann", "ann"}}},
                          {"the zone knows the name in another case only",
                           {{"ann", 1000, 100}, {"bob", 1001, 100}},
                           {{"users", 100}},
                           {{"Ann", 1000, 500, "ann"}, {"Bob", 7001, 500, "bob"}},
                           {},
                           {"uid 1000 -> 51000: ann yields to Ann"}},
                          {"a longer Unix name is another name",
                           {{"ann", 1000, 100}},
                           {},
                           {{"annz", 2000, 500, "ann"}},
                           {},
                           {}},
                          {"unknown by name, free or foreign uid",
                           {{"ann", 1000, 100}, {"bob", 1001, 100}},
                           {},
                           {{"other", 1001, 500}},
                           {},
                           {"uid 1001 -> 51001: bob yields to other"}},
                          {"two names of one uid in the zone: the later line wins",
                           {{"one", 1000, 100}, {"two", 1000, 101}},
                           {},
                           {{"one", 2001, 501}, {"two", 2002, 502}},
                           {},
                           {"uid 1000 -> 2002: two is two", "primary of 1000: 101 -> 502"}},
                          {"a name in the zone overwrites a spare uid",
                           {{"stray", 1000, 100}, {"ann", 1000, 101}},
                           {},
                           {{"other", 1000, 500}, {"ann", 2000, 501}},
                           {},
                           {"uid 1000 -> 2000: ann is ann", "primary of 1000: 101 -> 501"}},
                          {"a stray name leaves a mapped uid in place",
                           {{"ann", 1000, 101}, {"stray", 1000, 100}},
                           {},
                           {{"other", 1000, 500}, {"ann", 2000, 501}},
                           {},
                           {"uid 1000 -> 2000: ann is ann", "primary of 1000: 101 -> 501"}},
                          {"two strays of one uid: the first record stays",
                           {{"one", 1000, 100}, {"two", 1000, 100}},
                           {},
                           {{"other", 1000, 500}},
                           {},
                           {"uid 1000 -> 51000: one yields to other"}},
                          {"two users become one",
                           {{"one", 1000, 100}, {"two", 1001, 101}},
                           {},
                           {{"one", 2000, 500}},
                           {},
                           {"uid 1000 -> 2000: one is one", "uid 1001 -> 2000: two is one",
                            "primary of 1000: 100 -> 500", "primary of 1001: 101 -> 500"},
                           {{"two", "one"}}},
                          {"a new uid that is another local user's",
                           {{"one", 1000, 100}, {"two", 1001, 100}},
                           {},
                           {{"one", 1001, 500}},
                           {},
                           {"uid 1000 -> 1001: one is one", "uid 1001 -> 51001: two yields to one",
                            "primary of 1000: 100 -> 500"}}};
  for (const World& world : worlds) {
    SCOPED_TRACE(world.about);
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(mapsAsText(), world.expected);
  }
}

// ---- the primary gid of users who are not in the zone

TEST_F(UserMap, DanglingPrimaryGids) {
  const World worlds[] = {
      {"dangling on both sides", {{"ann", 1000, 100}}, {}, {}, {}, {}},
      {"known to the zone alone",
       {{"ann", 1000, 100}},
       {},
       {},
       {{"other", 100}},
       {"gid 100 -> 50100:  yields to other"}},
      {"after a spare uid",
       {{"ann", 1000, 100}},
       {},
       {{"foreign", 1000, 500}},
       {{"other", 100}},
       {"uid 1000 -> 51000: ann yields to foreign", "gid 100 -> 50100:  yields to other"}},
      {"after an earlier mapping of the uid",
       {{"ann", 1000, 99}, {"stray", 1000, 100}},
       {},
       {{"ann", 2000, 500}, {"foreign", 1000, 500}},
       {{"other", 100}},
       {"uid 1000 -> 2000: ann is ann", "gid 100 -> 50100:  yields to other",
        "primary of 1000: 99 -> 500"}},
      {"a local group has been judged already, whatever the outcome",
       {{"ann", 1000, 100}, {"bob", 1001, 101}},
       {{"kept", 100}, {"moved", 101}},
       {},
       {{"kept", 100}, {"moved", 7100}, {"other", 101}},
       {"gid 101 -> 7100: moved is moved"}},
      {"two users, one gid",
       {{"ann", 1000, 100}, {"bob", 1001, 100}},
       {},
       {},
       {{"other", 100}},
       {"gid 100 -> 50100:  yields to other"}}};
  for (const World& world : worlds) {
    SCOPED_TRACE(world.about);
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(mapsAsText(), world.expected);
  }
}

// ---- spare ids inside a pass

TEST_F(UserMap, SpareIdsAreKeptApartByTheirSeedsAlone) {
  const World worlds[] = {
      {"two seeds, one start",
       {{"ann", 1000, 100}, {"bob", 11000, 100}},
       {},
       {{"x", 1000, 500}, {"y", 11000, 500}},
       {},
       {"uid 1000 -> 51000: ann yields to x", "uid 11000 -> 51000: bob yields to y"}},
      {"a local account's id is spare when it is unmapped and unknown to the zone",
       {{"bob", 51000, 100}, {"ann", 1000, 100}},
       {},
       {{"x", 1000, 500}},
       {},
       {"uid 1000 -> 51000: ann yields to x"}},
      {"an old id is not spare, nor is a zone id of the same kind",
       {{"bob", 51000, 100}, {"ann", 1000, 100}},
       {},
       {{"bob", 2000, 500}, {"x", 1000, 500}, {"y", 51001, 500}},
       {{"group", 51002}},
       {"uid 1000 -> 51002: ann yields to x", "uid 51000 -> 2000: bob is bob",
        "primary of 51000: 100 -> 500"}},
      {"for gids likewise",
       {{"bob", 51000, 100}},
       {{"ops", 50200}, {"dev", 200}},
       {{"bob", 50202, 500}},
       {{"ops", 7000}, {"x", 200}, {"y", 50201}},
       {"uid 51000 -> 50202: bob is bob", "gid 200 -> 50202: dev yields to x",
        "gid 50200 -> 7000: ops is ops", "primary of 51000: 100 -> 500"}}};
  for (const World& world : worlds) {
    SCOPED_TRACE(world.about);
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(mapsAsText(), world.expected);
  }
}
