// The log cut, killed, and out of room.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "tests/privatelog/log_world.h"

namespace {

class LogUnderAttack : public LogWorld {};

std::string contentOf(const std::string& raw) {
  return raw.substr(0, raw.find('\0'));
}

// ---- Cut at every byte

struct Line {
  const char* text;
  uint64_t inode;
  bool counts;  // it is in the table once it is whole
};
constexpr Line kLines[] = {
    {"!Thu Nov 12 12:34:28 2026", 0, true},
    {"/t/a:2049:131:500:100:10001:10000", 131, true},
    {"+/t/a.bak:2049:132", 132, true},
    {"/t/failed:2049:150:500:100", 150, false},
    {">/t/l:2049:140:500:100:10001:10000", 140, true},
    {"@staff:100:10000", 0, true},
    {"=ann:500:100:10001:10000", 0, true},
    {"/t/z:2049:160:500:100:10001:10000", 160, true},
};

TEST_F(LogUnderAttack, CutAtEveryByteLosesAndInventsNothing) {
  std::string before = "domain:corp\n";
  for (const Line& line : kLines) {
    const std::string text = std::string(line.text) + "\n";
    for (size_t length = 0; length <= text.size(); ++length) {
      const std::string part = text.substr(0, length);
      SCOPED_TRACE(part);
      writeFile(kLog, before + part);
      run({2049, 170}, "/t/new");
      PrivateLog log;
      ASSERT_TRUE(log.loadPrivateLog(true));
      ASSERT_TRUE(log.openPrivateLog(true));
      EXPECT_TRUE(log.hasPath({2049, 170}, "/t/new"));
      for (const Line& other : kLines) {
        const bool isTorn = &other == &line && std::count(part.begin(), part.end(), ':') >= 4;
        const bool isWhole = &other < &line || (&other == &line && part == text);
        const bool isKnown = other.inode != 0 && log.hasInode({2049, other.inode});
        EXPECT_TRUE(isKnown == (isWhole && other.counts && other.inode != 0) || isTorn)
            << other.text;
      }
      for (uint64_t cut = 0; cut < 131; ++cut)
        EXPECT_FALSE(log.hasInode({2049, cut})) << cut;
    }
    before += text;
  }
}

TEST_F(LogUnderAttack, TornStartIsCompletedByWhatItsPathLeadsTo) {
  writeFile("/trees/file", "");
  ASSERT_EQ(chown("/trees/file", 10001, 10000), 0);
  ASSERT_EQ(symlink("file", "/trees/link"), 0);
  struct stat status = {};
  ASSERT_EQ(stat("/trees/file", &status), 0);
  const DevInode id = {status.st_dev, status.st_ino};
  for (const std::string path : {"/trees/file", ">/trees/link"}) {
    std::string text = "domain:corp\n";
    appendChangeStart(text, id, kOldIds, path, false);
    writeFile(kLog, text);
    PrivateLog log;
    ASSERT_TRUE(log.loadPrivateLog(true));
    ASSERT_TRUE(log.openPrivateLog(true));
    EXPECT_TRUE(log.hasInode(id));
    EXPECT_EQ(contentOf(readFile(kLog)), text + ":10001:10000\n");
    EXPECT_EQ(log.changeCount, 0u);
  }
}

// ---- Killed

TEST_F(LogUnderAttack, KilledAmongManyRecords) {
  for (useconds_t delay = 3000; delay < 60000; delay += 3000) {
    remove(kLog.c_str());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      PrivateLog log;
      log.openPrivateLog(false);
      for (uint64_t i = 1;; ++i)
        change(log, {1, i}, "/t/" + std::to_string(i));
    }
    usleep(delay);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    PrivateLog log;
    if (!log.loadPrivateLog(true))
      continue;  // killed before the header
    const std::string content = contentOf(readFile(kLog));
    const auto lines = std::count(content.begin(), content.end(), '\n');
    const uint64_t count = static_cast<uint64_t>(std::max<long>(lines, 2)) - 2;
    for (uint64_t i = 1; i <= count + 100; ++i)
      ASSERT_EQ(log.hasInode({1, i}), i <= count) << i;
    ASSERT_TRUE(log.openPrivateLog(true));
    ASSERT_TRUE(log.close());
    EXPECT_EQ(readFile(kLog).find('\0'), std::string::npos);
    EXPECT_TRUE(readFile(kLog).starts_with(content));
  }
}

// A piece whose first byte is missing, as a kill inside the copy leaves it.
TEST_F(LogUnderAttack, HalfCopiedPieceIsCutOff) {
  const std::string content =
      "domain:corp\n!Thu Nov 12 12:34:28 2026\n/a:1:1:500:100:10001:10000\n";
  writeFile(kLog, content + std::string("\0b:1:2:500:100:7:8\n/c:1:3:500:100:7:8\n\0\0", 40));
  PrivateLog log;
  ASSERT_TRUE(log.loadPrivateLog(true));
  EXPECT_FALSE(log.hasInode({1, 3}));
  ASSERT_TRUE(log.openPrivateLog(true));
  EXPECT_EQ(contentOf(readFile(kLog)), content);
}

// Behind the end stands what reads like an account's record that was prepared and whose update went
// through; unless it is a piece of a path.
TEST_F(LogUnderAttack, PreparedAccountIsMadeGoodButNoPieceOfAPath) {
  setPasswd("ann:x:10001:10000::/:/bin/sh\n");
  const std::string content = "domain:corp\n", record = "=ann:500:100:10001:10000\n";
  const std::string prepared = content + '\0' + "Mon\n" + record + '\0';
  const std::string madeGood = content + "!Mon\n" + record;
  for (const bool isPath : {false, true}) {
    writeFile(kLog, prepared);
    const UniqueFd file(open(kLog.c_str(), O_RDWR | O_CLOEXEC));
    LineFeedRanges ranges;
    ASSERT_TRUE(!isPath || ranges.add(file.get(), content.size(), 100));
    PrivateLog log;
    ASSERT_TRUE(log.loadPrivateLog(true));
    ASSERT_TRUE(log.openPrivateLog(true));
    EXPECT_EQ(contentOf(readFile(kLog)), isPath ? content : madeGood);
  }
}

// ---- Out of room

void limitFileSize(rlim_t limit) {
  const rlimit limits = {limit, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limits);
}

// Changes until the log takes no more; all that was taken can be read back.
int fillTheLog() {
  signal(SIGXFSZ, SIG_IGN);
  limitFileSize(20011);
  PrivateLog log;
  EXPECT_TRUE(log.openPrivateLog(false));
  uint64_t count = 0;
  std::string before;
  do {
    ++count;
    before = contentOf(readFile(kLog));
    errno = 0;
  } while (count < 10000 && change(log, {1, count}, "/trees/file" + std::to_string(count)));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(log.addLinkRecord({1, 1}, std::string(200, 'l')));
  EXPECT_EQ(log.changeCount, count - 1);
  EXPECT_TRUE(contentOf(readFile(kLog)) == before);
  limitFileSize(RLIM_INFINITY);
  EXPECT_TRUE(log.close());
  EXPECT_GT(before.size(), 19900u);

  PrivateLog again;
  EXPECT_TRUE(again.loadPrivateLog(true));
  for (uint64_t i = 1; i <= count; ++i)
    EXPECT_EQ(again.hasInode({1, i}), i < count) << i;
  return 0;
}

TEST_F(LogUnderAttack, FullLogTakesNoChangeAndLosesNone) {
  for (const char* fileSystem : {"tmpfs", "ramfs"}) {  // ramfs takes no reservation
    ASSERT_EQ(mount("none", "/etc/orvantadc", fileSystem, 0, ""), 0);
    joinDomain("corp");
    const RunResult result = runInChild(fillTheLog);
    EXPECT_EQ(result.status, 0) << fileSystem << result;
    ASSERT_EQ(umount("/etc/orvantadc"), 0);
  }
}

TEST_F(LogUnderAttack, PathWithLineFeedNeedsTheAttribute) {
  ASSERT_EQ(mount("none", "/etc/orvantadc", "ramfs", 0, ""), 0);
  PrivateLog log;
  ASSERT_TRUE(log.openPrivateLog(false));
  ASSERT_TRUE(change(log, {1, 1}, "/a"));
  const std::string before = readFile(kLog);
  EXPECT_FALSE(log.beginRecord({1, 2}, kOldIds, "/b\nc", false));
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_FALSE(log.addLinkRecord({1, 1}, "/b\nc"));
  EXPECT_EQ(readFile(kLog), before);
}

}  // namespace
