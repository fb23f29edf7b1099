#include "walk/new_owner.h"

#include <gtest/gtest.h>

#include "idmap/id_maps.h"

namespace {

TEST(NewOwner, Rows) {
  uidMap = {{500, 10500}, {501, 501}, {502, 10502}, {503, 10503}, {4294967295, 7}};
  gidMap = {{100, 10100}, {101, 10101}, {102, 102}};
  userLocalGid = {{500, 100}, {502, 100}, {504, 100}};
  userZoneGid = {{500, 20100}, {503, 20103}, {504, 20104}};

  const struct {
    OwnerIds onDisk;
    std::optional<OwnerIds> changed;
  } rows[] = {
      {{1, 1}, std::nullopt},
      {{500, 1}, OwnerIds{10500, 1}},
      {{1, 101}, OwnerIds{1, 10101}},
      {{500, 101}, OwnerIds{10500, 10101}},
      {{500, 100}, OwnerIds{10500, 20100}},     // the primary group, against gidMap
      {{502, 100}, OwnerIds{10502, 10100}},     // no primary group in the zone
      {{503, 100}, OwnerIds{10503, 10100}},     // no local primary group
      {{504, 100}, OwnerIds{504, 10100}},       // the rule needs a mapped uid
      {{100, 500}, std::nullopt},               // uids are not looked up as gids
      {{4294967295, 101}, OwnerIds{7, 10101}},  // ids are unsigned
      {{501, 1}, std::nullopt},                 // mapped to what it is
      {{501, 102}, std::nullopt},
      {{501, 101}, OwnerIds{501, 10101}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(newOwner(row.onDisk), row.changed) << row.onDisk.uid << ":" << row.onDisk.gid;
}

}  // namespace
