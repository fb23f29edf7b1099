#include "driver/conflict_summary.h"

#include <gtest/gtest.h>

#include "idmap/conflict_records.h"

TEST(ConflictSummary, CellsOfEveryKind) {
  const auto printed = [] {
    testing::internal::CaptureStdout();
    printConflictSummary(nullptr);
    return testing::internal::GetCapturedStdout();
  };
  const std::string none = "No user-id conflicts were found.\n\n";
  EXPECT_EQ(printed(), none + "No group-id conflicts were found.\n\n");

  const std::string tooLong(100, 'n');
  userNameMap = {{"dev", "nobody"}};
  groupNameMap = {{"dev", "devz"}};
  gidMap = {{7, 8}};  // the heading shows the size of this map
  groupConflicts = {{0, ConflictRecord()},
                    {7, zoneIdRecord(tooLong, 7, tooLong, 8)},
                    {501, newIdRecord("dev", 501, "zed", 50000)},
                    {4294967295u, zoneIdRecord("", 4294967295u, "top", 2147483648u)}};
  const std::string cut(77, 'n');  // cut after 79 bytes, before the closing bracket
  EXPECT_EQ(
      printed(),
      none +
          "1 group-id conflict was found.\n"
          "Local GID(Name/Map)             Zone GID(Name)          Resolution      ID Map\n"
          "------------------------------  ----------------------  --------------  ------\n"
          "0()                             0()                     None                    \n"
          "7(" +
          cut + "8(" + cut +
          "Use zone ID     8       \n"
          "501(dev/devz)                   501(zed)                Assign new ID   50000   \n"
          "4294967295()                    2147483648(top)         Use zone ID     2147483648\n"
          "\n");
}
