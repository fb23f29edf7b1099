#include "driver/conflict_summary.h"

#include <gtest/gtest.h>

#include "idmap/verdict.h"

TEST(ConflictRow, Rows) {
  const NameMap names = {{"ann", "anna"}};
  const std::string tooLong(100, 'n');
  const struct {
    ConflictRecord record;
    std::string expected;
  } rows[] = {
      {zoneIdRecord("bob", 500, "bob", 10001),
       "500(bob)                        10001(bob)              Use zone ID     10001   "},
      {newIdRecord("ann", 501, "zed", 50000),
       "501(ann/anna)                   501(zed)                Assign new ID   50000   "},
      {zoneIdRecord("", 4294967295u, "top", 2147483648u),
       "4294967295()                    2147483648(top)         Use zone ID     2147483648"},
      {ConflictRecord(),
       "0()                             0()                     None                    "},
      {zoneIdRecord(tooLong, 7, tooLong, 8),  // 79 bytes, no closing bracket
       "7(" + std::string(77, 'n') + "8(" + std::string(77, 'n') + "Use zone ID     8       "},
  };
  for (const auto& row : rows)
    EXPECT_EQ(conflictRow(row.record, names), row.expected);
}

TEST(ConflictSummary, TellsOneConflictFromNone) {
  const auto printed = [] {
    testing::internal::CaptureStdout();
    printConflictSummary(nullptr);
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(printed(), "No user-id conflicts were found.\n\nNo group-id conflicts were found.\n\n");
  gidMap[100] = 10000;
  EXPECT_TRUE(printed().starts_with(
      "No user-id conflicts were found.\n\n1 group-id conflict was found.\nLocal GID(Name/Map) "));
}
