#include "privatelog/undo_plan.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(DirectoryPart, Rows) {
  const struct {
    std::string_view path, directory;
  } kRows[] = {{"/home/ann/a", "/home/ann"},
               {"/a", ""},
               {"/", "/"},
               {"", ""},
               {"a", "a"},
               {"a/b", "a"},
               {"/a/", "/a"}};
  for (const auto& row : kRows)
    EXPECT_EQ(directoryPart(row.path), row.directory) << row.path;
}

TEST(Credit, OfWhatIsFound) {
  const LogRecordView record{{5, 7}, {500, 100}, {0, 0}, "/t/a"};
  const struct {
    bool newIdsKnown = true;
    DevInode found;
    OwnerIds owner;
    Credit credit = Credit::Full;
  } kRows[] = {
      {true, {5, 7}, {501, 101}, Credit::Full},
      {true, {5, 8}, {501, 101}, Credit::IfRootAlone},
      {true, {6, 7}, {501, 101}, Credit::IfRootAlone},
      {true, {5, 8}, {0, 0}, Credit::Full},
      {true, {5, 8}, {0, 1}, Credit::IfRootAlone},
      {true, {5, 8}, {1, 0}, Credit::IfRootAlone},
      // The zeros of an incomplete line are no owner.
      {false, {5, 8}, {0, 0}, Credit::IfRootAlone},
      {false, {5, 7}, {0, 0}, Credit::Full},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(creditOfEntry(record, row.newIdsKnown, row.found, row.owner), row.credit)
        << row.newIdsKnown << " " << row.found.device << ":" << row.found.inode << " "
        << row.owner.uid << ":" << row.owner.gid;
}

}  // namespace
