// The end of a log that a killed run left: a torn tail, and the bytes behind the first NUL.
#include <fcntl.h>
#include <unistd.h>

#include "privatelog/torn_tail.h"
#include "tests/privatelog/log_world.h"

namespace {

using enum TailVerdict;

const EntryOnDisk kOld = {{1, 2}, {500, 100}};
const EntryOnDisk kChanged = {{1, 2}, {10001, 10000}};

TEST(TornTail, Verdicts) {
  const TailPlace atPageEnd = {.atPageEnd = true};
  const struct {
    const char* tail = nullptr;
    std::optional<EntryOnDisk> onDisk;
    TailVerdict verdict = Leave;
    TailPlace place = {};
  } rows[] = {
      {"", {}, Leave},
      // A start of a change that is whole: the disk decides.
      {"/a:1:2:500:100", kChanged, CompleteChange},
      {"/a:1:2:500:100", EntryOnDisk{{1, 2}, {500, 7}}, CompleteChange},
      {"/a:1:2:500:100", kOld, EndLine},
      {"/a:1:2:500:100", EntryOnDisk{{1, 3}, {10001, 10000}}, Leave},
      {"/a:1:2:500:100", {}, Leave},
      // A start that is cut.
      {"/a:1", {}, Leave},
      {"/a:1:2", {}, EndLine},
      {"/a:1:2:500:", kChanged, EndLine},
      // Lines of other kinds, and a part of a path with line feeds.
      {"+/a:1:2", {}, CommentOut},
      {"=ann:500:1", {}, EndLine},
      {"@staff:1", {}, EndLine},
      {"!Thu Nov 12 12:3", {}, Leave},
      {"#/a:1:2:500:100", kChanged, Leave},
      {"/a:1:2:500:100", kChanged, EndLine, {.insideLineFeedPath = true}},
      // A killed write() ends at a page, inside an end or inside the gid of a start.
      {"/a:1:2:500:1", kOld, CompleteChange},
      {"/a:1:2:500:1", kOld, EndLine, atPageEnd},
      {"/a:1:2:500:1", kChanged, CompleteChange, atPageEnd},
      {"/a:1:2:500:2", kOld, CompleteChange, atPageEnd},
      {"/a:1:2:500:100:", {}, EndLine, atPageEnd},
      {"/a:1:2:500:100:10001:1", {}, EndLine, atPageEnd},
      {"/a:b:1:2:500:100", {}, Leave, atPageEnd},
      {"/a:1:2:500:100:10001:1:", {}, Leave, atPageEnd},
  };
  for (const auto& row : rows)
    EXPECT_EQ(judgeTornTail(row.tail, row.onDisk, row.place), row.verdict) << row.tail;
}

class LogEnd : public LogWorld {
 protected:
  // Continues the log without making a change, and returns the text of the file.
  static std::string continued() {
    PrivateLog log;
    EXPECT_TRUE(log.loadPrivateLog(true));
    EXPECT_TRUE(log.openPrivateLog(true));
    EXPECT_TRUE(log.close());
    return readFile(kLog);
  }
};

TEST_F(LogEnd, IsMendedAsItsTailAsks) {
  writeFile("/trees/file", "");
  ASSERT_EQ(chown("/trees/file", 10001, 10000), 0);
  ASSERT_EQ(symlink("file", "/trees/link"), 0);
  const std::string start = "/trees/file" + idText("/trees/file") + ":500:100";
  const std::string followed = ">/trees/link" + idText("/trees/file") + ":500:100";
  const struct {
    std::string tail, mended;
  } rows[] = {
      {start, start + ":10001:10000\n"},
      {followed, followed + ":10001:10000\n"},
      {"/a:1:2", "/a:1:2\n"},
      {"+/a:1:2", "#/a:1:2\n"},
      {"/a:1", "/a:1"},
      // A record without its first byte, which a kill during the copying leaves.
      {std::string("\0b:1:2:500:100:7:8\n/c:1:3:500:100:7:8\n\0\0", 40), ""},
  };
  for (const auto& row : rows) {
    writeFile(kLog, kHeader + row.tail);
    EXPECT_EQ(continued(), kHeader + row.mended);
  }
}

// Bytes that look like a prepared record of an account count as one only if the account was
// updated.
TEST_F(LogEnd, PreparedAccountIsMadeGoodWhenItsUpdateWentThrough) {
  setPasswd("ann:x:10001:10000::/:/bin/sh\n");
  setGroup("staff:x:10000:\n");
  const std::string ann = "ann:500:100:10001:10000\n";
  const std::string zeros(3, '\0');
  const struct {
    std::string behindNul, kept;
  } rows[] = {
      {ann, "=" + ann},
      {"staff:100:10000\n" + zeros, "@staff:100:10000\n"},
      {"Mon 1:2:3\n=" + ann, "!Mon 1:2:3\n=" + ann},
      {"Mon\n@staff:100:10000\n" + zeros, "!Mon\n@staff:100:10000\n"},
      // The account was not updated, or the record is not whole.
      {"ann:500:100:10001:7\n", ""},
      {"staff:100:7\n", ""},
      {"cid:500:100:10001:10000\n", ""},
      {zeros + ann, ""},
      {"Mon\n=ann:500:100:10001:10000" + zeros + "\n", ""},
      // Other pieces without a first byte: an end, and a path that looks like a record.
      {"10001:10000\n", ""},
      {"t/x\n=" + ann + "y:8:131:500:100", ""},
  };
  for (const auto& row : rows) {
    writeFile(kLog, kHeader + '\0' + row.behindNul);
    EXPECT_EQ(continued(), kHeader + row.kept) << testing::PrintToString(row.behindNul);
  }
  // A piece of a path, as the range of the path shows.
  writeFile(kLog, kHeader + '\0' + ann);
  rememberName(kLog, kHeader.size(), 100);
  EXPECT_EQ(continued(), kHeader);
}

}  // namespace
