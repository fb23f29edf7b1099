#include "privatelog/change_table.h"

#include <string>

#include <gtest/gtest.h>

namespace {

// Through several growths of the index and over the ends of record and path chunks.
TEST(ChangeTable, FindsEveryRecordOfMany) {
  constexpr uint64_t kCount = 20000;
  const auto idOf = [](uint64_t i) { return DevInode{i % 7, i / 3 * 64}; };
  const auto pathOf = [](uint64_t i) {
    return "/" + std::string(i % 500 == 0 ? 20000 : i % 50, 'x') + std::to_string(i);
  };
  ChangeTable table;
  EXPECT_FALSE(table.hasInode({0, 0}));
  for (uint64_t i = 0; i < kCount; ++i)
    table.insert({idOf(i), {}, {}, pathOf(i), false});
  EXPECT_EQ(table.size(), kCount);
  for (uint64_t i = 0; i < kCount; ++i)
    ASSERT_TRUE(table.hasPath(idOf(i), pathOf(i))) << i;
  EXPECT_FALSE(table.hasPath(idOf(1), pathOf(1) + "/"));
  EXPECT_FALSE(table.hasInode({7, 0}));
  EXPECT_FALSE(table.hasInode({0, 1}));
}

}  // namespace
