// Both passes as worlds. The columns are those of World: local users and groups, zone users and
// groups, the maps, and the name maps.

#include <gtest/gtest.h>

#include "tests/idmap/mapping_world.h"

namespace {

class Mapping : public SandboxTest {
 protected:
  void check(const std::vector<World>& worlds) {
    for (const World& world : worlds) {
      const auto zone = openZone(world);
      buildMaps(world);
      EXPECT_EQ(mapsAsText(), world.expected) << world.about;
    }
  }
};

}  // namespace

TEST_F(Mapping, Groups) {
  check({{"each by itself", "", "same:1 dev:100 gone:101 odd:102 free:103 held:104 far:4294967294",
          "", "same:1 dev:9 devz:7100 gone:9 x:101 odd=Odd:7102 y:104 far:4000000000",
          "gid 100 -> 7100 dev is devz, gid 101 -> 50101 gone yields to x, "
          "gid 102 -> 7102 odd is Odd, gid 104 -> 50104 held yields to y, "
          "gid 4294967294 -> 4000000000 far is far",
          "", "dev=devz Dev=dev gone=away"},
         {"of two names of one gid the later wins", "", "one:100 two:100", "", "one:7001 two:7002",
          "gid 100 -> 7002 two is two"},
         {"a name overwrites a spare gid", "", "stray:100 dev:100", "", "other:100 dev:7100",
          "gid 100 -> 7100 dev is dev"},
         {"a stray leaves a mapped gid", "", "dev:100 stray:100", "", "other:100 dev:7100",
          "gid 100 -> 7100 dev is dev"}});
}

TEST_F(Mapping, Users) {
  check({{"each by itself",
          "same:1000:100 ann:1001:100 odd:1002:100 Bob:1003:100 carl:1004:100 held:1005:100",
          "users:100",
          "same:1000:500 ann:9:9 annz:2001:500 odd=Odd:1002:9 Bob=bob:9:9 carl=carlz:9:9 x:1005:9",
          "other:500",
          "uid 1001 -> 2001 ann is annz, uid 1002 -> 51002 odd yields to Odd, "
          "uid 1005 -> 51005 held yields to x, primary of 1000: 100 -> 500, "
          "primary of 1001: 100 -> 500",
          "ann=annz Ann=ann"},
         {"of two names of one uid the later wins", "one:1000:100 two:1000:101", "",
          "one:2001:501 two:2002:502", "",
          "uid 1000 -> 2002 two is two, primary of 1000: 101 -> 502"},
         {"a name overwrites a spare uid", "stray:1000:100 ann:1000:101", "",
          "other:1000:500 ann:2000:501", "",
          "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"},
         {"a stray leaves a mapped uid", "ann:1000:101 stray:1000:100", "",
          "other:1000:500 ann:2000:501", "",
          "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"}});
}

TEST_F(Mapping, PrimaryGidsOfUsersWhoAreNotInTheZone) {
  check(
      {{"known to the zone alone", "ann:1000:100 bob:1001:100", "", "", "other:100",
        "gid 100 -> 50100  yields to other"},
       {"after a spare uid, and after an earlier mapping",
        "ann:1000:99 stray:1000:100 held:1001:101", "", "ann:2000:500 x:1000:9 y:1001:9",
        "g:100 h:101",
        "uid 1000 -> 2000 ann is ann, uid 1001 -> 51001 held yields to y, "
        "gid 100 -> 50100  yields to g, gid 101 -> 50101  yields to h, "
        "primary of 1000: 99 -> 500"},
       {"a local group has been judged already", "ann:1000:100 bob:1001:101", "kept:100 moved:101",
        "", "kept:100 moved:7100 other:101", "gid 101 -> 7100 moved is moved"}});
}

TEST_F(Mapping, SpareIdsAreKeptApartByTheirSeedsAlone) {
  check({{"new ids, and what an unmapped account bears, are not looked at",
          "ann:1000:100 bob:11000:100 carl:51000:100", "", "x:1000:500 y:11000:500", "",
          "uid 1000 -> 51000 ann yields to x, uid 11000 -> 51000 bob yields to y"}});
}
