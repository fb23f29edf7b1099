#include "privatelog/change_table.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::string> pathsOf(const ChangeTable& table, DevInode id) {
  std::vector<std::string> found;
  table.forEach(id, [&](const LogRecordView& record) { found.emplace_back(record.path); });
  return found;
}

TEST(ChangeTable, KeepsRecordsOfOneInodeInInsertionOrder) {
  ChangeTable table;
  EXPECT_FALSE(table.hasInode({0, 0}));
  for (const char* path : {"/b", "/a", "/b", ""})
    table.insert({{1, 2}, {3, 4}, {5, 6}, path, false});
  table.insert({{2, 2}, {}, {}, "/other-device", false});
  table.insert({{1, 3}, {}, {}, "/other-inode", false});
  EXPECT_EQ(pathsOf(table, {1, 2}), (std::vector<std::string>{"/b", "/a", "/b", ""}));
  EXPECT_EQ(table.count({1, 2}), 4u);
  EXPECT_EQ(table.count({2, 3}), 0u);
  EXPECT_TRUE(table.hasPath({1, 2}, "/a"));
  EXPECT_FALSE(table.hasPath({1, 2}, "/a/"));
  EXPECT_FALSE(table.hasPath({2, 2}, "/a"));
  table.forEach({1, 2}, [](const LogRecordView& record) {
    EXPECT_EQ(record.id, (DevInode{1, 2}));
    EXPECT_EQ(record.oldIds, (OwnerIds{3, 4}));
    EXPECT_EQ(record.newIds, (OwnerIds{5, 6}));
  });
}

// Through several growths of the index and over the ends of record and path chunks.
TEST(ChangeTable, FindsEveryRecordOfMany) {
  constexpr uint64_t kCount = 20000;
  const auto idOf = [](uint64_t i) { return DevInode{i % 7, i / 3 * 64}; };
  const auto pathOf = [](uint64_t i) {
    return "/" + std::string(i % 500 == 0 ? 20000 : i % 50, 'x') + std::to_string(i);
  };
  ChangeTable table;
  for (uint64_t i = 0; i < kCount; ++i)
    table.insert({idOf(i), {}, {}, pathOf(i), false});
  EXPECT_EQ(table.size(), kCount);
  for (uint64_t i = 0; i < kCount; ++i)
    ASSERT_TRUE(table.hasPath(idOf(i), pathOf(i))) << i;
  EXPECT_FALSE(table.hasInode({7, 0}));
  EXPECT_FALSE(table.hasInode({0, 1}));
}

}  // namespace
