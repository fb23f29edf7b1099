#include "driver/account_update.h"

#include <gtest/gtest.h>

#include "idmap/id_maps.h"

TEST(NewIdsOfAccount, Rows) {
  uidMap = {{500, 10001}, {501, 10002}};
  userZoneGid = {{500, 10100}, {502, 10102}};
  userLocalGid = {{500, 77}};
  gidMap = {{100, 10000}, {4294967295u, 1}};

  const struct {
    OwnerIds present;
    std::optional<OwnerIds> expected;
  } rows[] = {
      {{500, 100}, OwnerIds{10001, 10100}},  // uid moves, zone gid known
      {{500, 999}, OwnerIds{10001, 10100}},  // the gid need be neither mapped nor the recorded one
      {{501, 100}, OwnerIds{10002, 10000}},  // uid moves, no zone gid
      {{502, 100}, OwnerIds{502, 10000}},    // uid stays: the zone gid says nothing
      {{100, 500}, std::nullopt},            // uids and gids are different numbers
      {{1, 4294967295u}, OwnerIds{1, 1}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(newIdsOfAccount(row.present), row.expected)
        << row.present.uid << ":" << row.present.gid;
}
