// The index beside the log: which lines it vouches for after damage or edits of either file.
#include <unistd.h>

#include <filesystem>
#include <set>

#include "privatelog/index_record.h"
#include "tests/privatelog/log_world.h"

namespace {

const std::string kIndex = paths::kPrivateLogIndex;
const std::string kForged = "/trees/x\n/etc/shadow:1:666:0:0:1:1\n@root:0:1\ny";
constexpr uint64_t kLast = 6;

class LogIndexTest : public LogWorld {
 protected:
  void arrange() override {
    LogWorld::arrange();
    run({1, 1}, "/a");
    PrivateLog log;
    ASSERT_TRUE(log.loadPrivateLog(true) && log.openPrivateLog(true));
    ASSERT_TRUE(change(log, {1, 2}, kForged));
    ASSERT_TRUE(change(log, {1, 3}, "/c:8:9:1:1:1:1"));
    ASSERT_TRUE(begin(log, {1, 99}, "/failed:1:98"));
    log.abandonRecord();
    ASSERT_TRUE(log.addLinkRecord(Looked({1, 3}, "/c2")));
    log.addGroupUpdateRecord("staff", 100, 10000);
    ASSERT_TRUE(log.close());
    log.release();
    for (uint64_t inode = 4; inode <= kLast; ++inode)
      run({1, inode}, "/d" + std::to_string(inode));
    text = readFile(kLog);
    index = readFile(kIndex);
  }

  static void setFiles(const std::string& logBytes, const std::string& indexBytes) {
    writeFile(kLog, logBytes);
    writeFile(kIndex, indexBytes);
  }

  // The inodes that a run knows, out of 1 to kLast and the forged ones; or "unusable".
  static std::string known() {
    const RunResult result = runInChild([] {
      PrivateLog log;
      if (!log.loadPrivateLog(true))
        return puts("unusable") < 0 ? 1 : 0;
      for (const uint64_t inode : {1U, 2U, 3U, 4U, 5U, 6U, 9U, 98U, 99U, 666U}) {
        if (log.hasInode(Looked({1, inode}, "")) || log.hasInode(Looked({8, inode}, "")))
          printf("%lu ", static_cast<unsigned long>(inode));
      }
      return 0;
    });
    EXPECT_EQ(result.signal, 0) << result;
    return result.out;
  }

  // Makes a further run record one more change. False when it cannot.
  static bool goesOn() {
    return runInChild([] {
             PrivateLog log;
             const bool isUsable = log.loadPrivateLog(true);
             const bool isDone = isUsable && log.openPrivateLog(true) && change(log, {1, 9}, "/e");
             return puts(isDone ? "yes" : "no") < 0 ? 1 : 0;
           }).out == "yes\n";
  }

  // Expects that every known inode is one that the tool recorded. A further run must know these
  // too, and may know one more, whose line it has mended.
  void expectSound() const {
    const std::string before = known();
    if (before == "unusable\n") {
      EXPECT_FALSE(goesOn());
      return;
    }
    EXPECT_TRUE(goesOn());
    const std::string after = known();
    EXPECT_TRUE(after.starts_with(before) && after.ends_with("9 ")) << before << "; " << after;
    EXPECT_TRUE(isSubset(after.substr(0, after.size() - 2))) << after;
  }

  static bool isSubset(const std::string& found) {
    std::istringstream stream(found);
    uint64_t inode = 0;
    while (stream >> inode && inode <= kLast) {
    }
    return stream.eof();
  }

  std::string text, index;
};

const std::string kAll = "1 2 3 4 5 6 ";

TEST_F(LogIndexTest, VouchesForItsLinesAndForNoOthers) {
  EXPECT_EQ(known(), kAll);
  expectSound();
  EXPECT_TRUE(readFile(kLog).starts_with(text) && readFile(kIndex).starts_with(index));
  std::filesystem::remove(kIndex);  // without it every line of the text counts
  EXPECT_TRUE(contains(known(), "666 "));
}

TEST_F(LogIndexTest, CutAnywhereItVouchesForWhatIsLeft) {
  for (size_t length = 0; length < index.size(); length += kSanitized ? 7 : 3) {
    SCOPED_TRACE(length);
    setFiles(text, index.substr(0, length));
    // Without its first record the index cannot be used.
    if (length >= 2 * kIndexRecordSize)
      expectSound();
  }
  // The log is cut, as by a power cut. Records without a line are dropped.
  for (size_t length = kHeader.size(); length < text.size(); length += kSanitized ? 7 : 3) {
    SCOPED_TRACE(length);
    setFiles(text.substr(0, length), index);
    expectSound();
  }
}

TEST_F(LogIndexTest, DamageOnlyLosesRecords) {
  for (size_t at = 0; at < index.size(); at += kSanitized ? 7 : 1) {
    SCOPED_TRACE(at);
    std::string damaged = index;
    damaged[at] = static_cast<char>(damaged[at] ^ (at % 2 == 0 ? 0x01 : 0x90));
    setFiles(text, damaged);
    const std::string left = known();
    EXPECT_TRUE(left == "unusable\n" || isSubset(left)) << left;
  }
}

// The log is edited, and the records find their lines again.
TEST_F(LogIndexTest, FindsTheLinesOfAnEditedLog) {
  const size_t firstLine = text.find("/a:");
  const size_t third = text.find("/c:8");
  const size_t fourth = text.find("/d4");
  const auto without = [this](size_t from, size_t to) {
    return text.substr(0, from) + text.substr(to);
  };
  const std::string moved = text.substr(third, text.find("/failed") - third);
  const struct {
    const char* what;
    std::string edited, found;
    int unvouched = 0;
  } rows[] = {
      {"a line in front", kHeader + "/new:1:9:1:1:2:2\n" + text.substr(kHeader.size()), kAll, 1},
      {"a comment in front", kHeader + "# by hand\n" + text.substr(kHeader.size()), kAll},
      {"another header", "domain:corp\n" + text.substr(kHeader.size()), kAll},
      {"the first line gone", without(firstLine, text.find('\n', firstLine) + 1), "2 3 4 5 6 "},
      {"a line in the middle gone", without(third, text.find("/failed")), "1 2 3 4 5 6 "},
      {"a line with another path", without(fourth + 1, fourth + 2), "1 2 3 5 6 ", 1},
      {"a line twice", text.substr(0, third) + moved + text.substr(third), kAll, 1},
      {"lines behind", text + "/new:1:9:1:1:2:2\n!Thu\n", kAll, 2},
      {"the last line gone", without(text.rfind("/d6"), text.size()), "1 2 3 4 5 "},
      {"no lines", kHeader, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    setFiles(row.edited, index);
    const RunResult result = runInChild([] { return PrivateLog().loadPrivateLog(true) ? 0 : 1; });
    const std::string warning = "Warning: private log file " + kLog +
                                " was edited: " + std::to_string(row.unvouched) +
                                " line(s) are not acted on\n";
    EXPECT_EQ(result.err, row.unvouched == 0 ? "" : warning);
    EXPECT_EQ(known(), row.found);
    expectSound();
  }
}

// An index of another log must not make the lines of this one count as unknown.
TEST_F(LogIndexTest, AnIndexOfAnotherLogIsRefusedByName) {
  std::string newer = index;
  newer[1] = 3;
  const std::string other = index;
  run({2, 1}, "/other");
  const struct {
    const char* what;
    std::string log, index;
  } rows[] = {
      {"it is of another version", text, newer},
      {"it is not an index", text, std::string(index.size(), 'x')},
      {"it is of another log", kHeader + "!Mon\n/z:7:7:1:1:2:2\n", other},
  };
  for (const auto& row : rows) {
    setFiles(row.log, row.index);
    const RunResult result = runInChild([] {
      PrivateLog log;
      EXPECT_FALSE(log.loadPrivateLog(true));
      EXPECT_FALSE(log.openPrivateLog(true));
      EXPECT_FALSE(log.openPrivateLog(false));
      return 0;
    });
    EXPECT_EQ(result.status, 0) << result;
    EXPECT_TRUE(contains(result.err, "Error: index file " + kIndex + " does not fit") &&
                contains(result.err, kLog + ": " + row.what + "\n"))
        << result;
    EXPECT_EQ(readFile(kLog) + readFile(kIndex), row.log + row.index);
  }
  // An index that is no regular file is refused, too. A link is not followed and does not count as
  // missing.
  const std::function<void()> others[] = {
      [] { ASSERT_EQ(mkdir(kIndex.c_str(), 0755), 0); },
      [] { ASSERT_EQ(mkfifo(kIndex.c_str(), 0600), 0); },
      [] { ASSERT_EQ(symlink("/etc/nowhere", kIndex.c_str()), 0); },
  };
  for (const auto& make : others) {
    std::filesystem::remove(kIndex);
    make();
    EXPECT_EQ(known(), "unusable\n");
  }
}

// A log of a release without an index gets one for its new lines. The older lines are read
// literally.
TEST_F(LogIndexTest, BeginsWhereAnOldLogEnds) {
  const std::string inName = "/trees/x\n/forged:1:6:0:0:1:1\ny:1:5:0:0:1:1\n";
  const std::string old = kHeader + "!Mon Jan  1 00:00:00 2024\n/old:1:4:500:100:7:7\n";
  std::filesystem::remove(kIndex);
  writeFile(kLog, old + inName);
  rememberName(kLog, old.size(), inName.size());
  EXPECT_EQ(known(), "4 ");
  ASSERT_TRUE(goesOn());
  EXPECT_EQ(known(), "4 9 ");
  // After an edit of the older lines the tool still finds where they end, but not the ranges of
  // names with line feeds.
  std::filesystem::remove(kLog);
  writeFile(kLog, old);
  std::filesystem::remove(kIndex);
  ASSERT_TRUE(goesOn());
  const std::string grown = readFile(kLog);
  writeFile(kLog, kHeader + "# by hand, with many words\n" + grown.substr(kHeader.size()));
  EXPECT_EQ(known(), "4 9 ");
}

}  // namespace
