#include "idmap/spare_id.h"

#include <vector>

#include <gtest/gtest.h>

#include "services/exceptions.h"
#include "tests/idmap/mapping_world.h"

namespace {

constexpr uint32_t kMax = 4294967295u;

std::vector<uint32_t> firstCandidates(uint32_t seed, IdRange range, size_t limit) {
  std::vector<uint32_t> ids;
  SpareIdScan scan(seed, range);
  do {
    ids.push_back(scan.candidate());
  } while (ids.size() < limit && scan.advance());
  return ids;
}

}  // namespace

TEST(SpareIdScan, Rows) {
  constexpr size_t kAll = 100;
  const struct {
    uint32_t seed;
    IdRange range;
    size_t limit;
    std::vector<uint32_t> expected;
  } rows[] = {{7, {50, 50}, kAll, {50}},
              {7, {50, 51}, kAll, {50, 51}},
              {2, {50, 53}, kAll, {52, 53, 50, 51}},
              {3, {50, 53}, kAll, {50, 51, 52, 53}},  // high is reached, but never the start
              {9999, {50000, 60000}, 3, {59999, 60000, 50000}},
              {kMax, {0, kMax}, 3, {0, 1, 2}},
              {kMax - 1, {0, kMax}, 4, {kMax - 1, kMax, 0, 1}},
              {5, {kMax - 2, kMax}, kAll, {kMax - 1, kMax, kMax - 2}}};
  for (const auto& row : rows)
    EXPECT_EQ(firstCandidates(row.seed, row.range, row.limit), row.expected)
        << row.seed << " in " << row.range.low << "-" << row.range.high;
}

using FindSpareId = SandboxTest;

TEST_F(FindSpareId, SkipsOldIdsUnaskedAndZoneIdsOfTheSameKind) {
  const auto zone = openZone({.zoneUsers = "a:53:1 b:50:1", .zoneGroups = "g:52"});
  clearMaps();
  CommandOptions options;
  options.newIDRange = {50, 54};
  uidMap = {{54, 51}};
  gidMap = {{53, 51}};
  EXPECT_EQ(findSpareId(2, true, options), 52u);
  EXPECT_EQ(findSpareId(3, true, options), 51u);
  EXPECT_EQ(findSpareId(2, false, options), 54u);
  EXPECT_EQ(zone->requests(),
            (std::vector<std::string>{"uid 52", "uid 53", "uid 50", "uid 51", "gid 52", "gid 54"}));
  EXPECT_EQ(zone->connections(), 3);
}

TEST_F(FindSpareId, AFullRangeEndsTheSearch) {
  const auto zone = openZone({.zoneUsers = "a:50:1 b:51:1"});
  clearMaps();
  CommandOptions options;
  options.newIDRange = {50, 52};
  uidMap = {{52, 0}};
  try {
    findSpareId(1, true, options);
    ADD_FAILURE() << "found an id";
  } catch (const orvs::InvalidRangeException& error) {
    EXPECT_STREQ(error.what(), "ID-Range is not large enough");
    EXPECT_STREQ(error.className(), "orvs::InvalidRangeException");
    EXPECT_STREQ(error.file(), "cli_idshift");
    EXPECT_EQ(error.rc(), -1);
  }
  EXPECT_EQ(zone->requests(), (std::vector<std::string>{"uid 51", "uid 50"}));
}
