#include "driver/conflict_summary.h"

#include <gtest/gtest.h>

namespace {

ConflictRecord conflict(
    const char* name, uint32_t id, const char* zoneName, uint32_t zoneId, int how, uint32_t newId) {
  ConflictRecord record;
  record.localName = name;
  record.localId = id;
  record.zoneName = zoneName;
  record.zoneId = zoneId;
  record.resolution = how;
  record.newId = newId;
  return record;
}

std::string printedSummary() {
  testing::internal::CaptureStdout();
  printConflictSummary(nullptr);
  return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(ConflictRow, Rows) {
  const NameMap names = {{"ann", "anna"}};
  const std::string tooLong(100, 'n');
  const struct {
    ConflictRecord record;
    std::string expected;
  } rows[] = {
      {conflict("bob", 500, "bob", 10001, 1, 10001),
       "500(bob)                        10001(bob)              Use zone ID     10001   "},
      {conflict("ann", 501, "zed", 501, 2, 50000),
       "501(ann/anna)                   501(zed)                Assign new ID   50000   "},
      {conflict("", 4294967295u, "top", 4294967294u, 1, 2147483648u),
       "4294967295()                    4294967294(top)         Use zone ID     2147483648"},
      {conflict("bob", 1, "bob", 2, 0, 3),
       "1(bob)                          2(bob)                  None                    "},
      {conflict(tooLong.c_str(), 7, tooLong.c_str(), 8, 1, 8),  // 79 bytes, no closing bracket
       "7(" + std::string(77, 'n') + "8(" + std::string(77, 'n') + "Use zone ID     8       "},
  };
  for (const auto& row : rows)
    EXPECT_EQ(conflictRow(row.record, names), row.expected);
}

TEST(ConflictSummary, TellsOneConflictFromNone) {
  EXPECT_EQ(printedSummary(),
            "No user-id conflicts were found.\n\nNo group-id conflicts were found.\n\n");
  gidMap[100] = 10000;
  EXPECT_TRUE(printedSummary().starts_with(
      "No user-id conflicts were found.\n\n1 group-id conflict was found.\nLocal GID(Name/Map) "));
  gidMap.clear();
}
