#include "privatelog/change_table.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

// Through several growths of the index and over the ends of chunks.
TEST(ChangeTable, KeepsEveryRecordOfManyInOrder) {
  constexpr uint64_t kCount = 20001;
  const auto idOf = [](uint64_t i) { return DevInode{i % 7, i / 21 * 5}; };
  ChangeTable table;
  EXPECT_FALSE(table.hasInode({0, 0}));
  for (uint64_t i = 0; i < kCount; ++i)
    table.insert({idOf(i), {}, {}, i, 1});
  EXPECT_EQ(table.size(), kCount);
  for (uint64_t i = 0; i + 21 < kCount; i += 21) {
    std::vector<uint64_t> offsets;
    table.forEach(idOf(i),
                  [&](const LoggedChange& change) { offsets.push_back(change.pathOffset); });
    ASSERT_EQ(offsets, (std::vector<uint64_t>{i, i + 7, i + 14}));
  }
  EXPECT_FALSE(table.hasInode({7, 0}));
  EXPECT_FALSE(table.hasInode({0, 1}));
}

}  // namespace
