#include "privatelog/prepared_account.h"

#include <gtest/gtest.h>

namespace {

TEST(PreparedAccount, IsFoundBehindTheNul) {
  const std::string zeros(3, '\0');
  const struct {
    std::string behindNul, text, line;  // no text: nothing was prepared
  } kRows[] = {
      {"ann:1:2:3:4\n", "=ann:1:2:3:4\n", "=ann:1:2:3:4"},
      {"staff:1:2\n" + zeros, "@staff:1:2\n", "@staff:1:2"},
      {"Mon 1:2:3\n=ann:1:2:3:4\n", "!Mon 1:2:3\n=ann:1:2:3:4\n", "=ann:1:2:3:4"},
      {"Mon 1:2:3\n@staff:1:2\n" + zeros, "!Mon 1:2:3\n@staff:1:2\n", "@staff:1:2"},
      {"", "", ""},
      {zeros + "ann:1:2:3:4\n", "", ""},
      {"ann:1:2:3:4", "", ""},
      {"Mon\n=ann:1:2:3:4", "", ""},
      {"Mon\n=ann:1:2:3:4" + zeros + "\n", "", ""},
      // Other pieces without their first byte: an end, and a path that reads like a record.
      {"10001:10000\n", "", ""},
      {"t/x\n=root:7:7:0:0\ny:8:131:500:100", "", ""},
  };
  for (const auto& row : kRows) {
    const auto found = parsePreparedAccount(row.behindNul);
    EXPECT_EQ(found ? found->text : "", row.text) << testing::PrintToString(row.behindNul);
    EXPECT_EQ(found ? found->line : "", row.line);
  }
}

}  // namespace
