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
  check({{"nothing local", "", "", "", "dev:7100", ""},
         {"same gid", "", "dev:100", "", "dev:100", ""},
         {"other gid", "", "dev:100", "", "dev:7100", "gid 100 -> 7100 dev is dev"},
         {"beyond 2^31", "", "a:4294967294", "", "a:4000000000",
          "gid 4294967294 -> 4000000000 a is a"},
         {"name map", "", "dev:100", "", "dev:9 devz:7100", "gid 100 -> 7100 dev is devz", "",
          "dev=devz Dev=dev"},
         {"mapped to a name that is not in the zone", "", "dev:100 ops:200", "",
          "dev:7100 other:100", "gid 100 -> 50100 dev yields to other", "", "dev=gone"},
         {"another spelling is believed", "", "dev:100", "", "dev=Dev:7100",
          "gid 100 -> 7100 dev is Dev"},
         {"unknown by name, free or foreign gid", "", "dev:100 ops:200", "", "other:200",
          "gid 200 -> 50200 ops yields to other"},
         {"two names of one gid: the later line wins", "", "one:100 two:100", "",
          "one:7001 two:7002", "gid 100 -> 7002 two is two"},
         {"a name overwrites a spare gid", "", "stray:100 dev:100", "", "other:100 dev:7100",
          "gid 100 -> 7100 dev is dev"},
         {"a stray leaves a mapped gid", "", "dev:100 stray:100", "", "other:100 dev:7100",
          "gid 100 -> 7100 dev is dev"},
         {"two groups become one", "", "one:100 two:101", "", "one:7001",
          "gid 100 -> 7001 one is one, gid 101 -> 7001 two is one", "", "two=one"},
         {"a new gid that is another's", "", "one:100 two:101", "", "one:101",
          "gid 100 -> 101 one is one, gid 101 -> 50101 two yields to one"}});
}

TEST_F(Mapping, Users) {
  check({{"nothing local", "", "", "ann:2000:500", "", ""},
         {"same uid: the primary group is remembered, not judged", "ann:1000:100", "",
          "ann:1000:500", "other:100", "primary of 1000: 100 -> 500"},
         {"other uid", "ann:1000:100", "", "ann:2000:500", "",
          "uid 1000 -> 2000 ann is ann, primary of 1000: 100 -> 500"},
         {"name map", "ann:1000:100", "", "ann:9:500 annz:2000:500", "",
          "uid 1000 -> 2000 ann is annz, primary of 1000: 100 -> 500", "ann=annz Ann=ann"},
         {"another spelling is a miss", "ann:1000:100 bob:1001:100 carl:1002:100", "users:100",
          "ann=Ann:1000:500 bob=Bob:7001:500 carl=carlz:7002:500", "",
          "uid 1000 -> 51000 ann yields to Ann"},
         {"unknown by name, free or foreign uid", "ann:1000:100 bob:1001:100", "", "other:1001:500",
          "", "uid 1001 -> 51001 bob yields to other"},
         {"two names of one uid: the later line wins", "one:1000:100 two:1000:101", "",
          "one:2001:501 two:2002:502", "",
          "uid 1000 -> 2002 two is two, primary of 1000: 101 -> 502"},
         {"a name overwrites a spare uid", "stray:1000:100 ann:1000:101", "",
          "other:1000:500 ann:2000:501", "",
          "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"},
         {"a stray leaves a mapped uid", "ann:1000:101 stray:1000:100", "",
          "other:1000:500 ann:2000:501", "",
          "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"},
         {"two users become one", "one:1000:100 two:1001:101", "", "one:2000:500", "",
          "uid 1000 -> 2000 one is one, uid 1001 -> 2000 two is one, "
          "primary of 1000: 100 -> 500, primary of 1001: 101 -> 500",
          "two=one"},
         {"a new uid that is another's", "one:1000:100 two:1001:100", "", "one:1001:500", "",
          "uid 1000 -> 1001 one is one, uid 1001 -> 51001 two yields to one, "
          "primary of 1000: 100 -> 500"}});
}

TEST_F(Mapping, PrimaryGidsOfUsersWhoAreNotInTheZone) {
  check(
      {{"dangling on both sides", "ann:1000:100", "", "", "", ""},
       {"known to the zone alone", "ann:1000:100 bob:1001:100", "", "", "other:100",
        "gid 100 -> 50100  yields to other"},
       {"after a spare uid", "ann:1000:100", "", "foreign:1000:500", "other:100",
        "uid 1000 -> 51000 ann yields to foreign, gid 100 -> 50100  yields to other"},
       {"after an earlier mapping of the uid", "ann:1000:99 stray:1000:100", "",
        "ann:2000:500 foreign:1000:500", "other:100",
        "uid 1000 -> 2000 ann is ann, gid 100 -> 50100  yields to other, "
        "primary of 1000: 99 -> 500"},
       {"a local group has been judged already", "ann:1000:100 bob:1001:101", "kept:100 moved:101",
        "", "kept:100 moved:7100 other:101", "gid 101 -> 7100 moved is moved"}});
}

TEST_F(Mapping, SpareIdsAreKeptApartByTheirSeedsAlone) {
  check({{"two seeds, one start", "ann:1000:100 bob:11000:100", "", "x:1000:500 y:11000:500", "",
          "uid 1000 -> 51000 ann yields to x, uid 11000 -> 51000 bob yields to y"},
         {"an unmapped local account's id", "bob:51000:100 ann:1000:100", "", "x:1000:500", "",
          "uid 1000 -> 51000 ann yields to x"},
         {"old ids and zone ids are taken", "bob:51000:100 ann:1000:100", "dev:200",
          "bob:2000:500 x:1000:500 y:51001:500 z:50200:500", "g:51002 h:200",
          "uid 1000 -> 51002 ann yields to x, uid 51000 -> 2000 bob is bob, "
          "gid 200 -> 50200 dev yields to h, primary of 51000: 100 -> 500"}});
}
