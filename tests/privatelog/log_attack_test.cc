// The log cut, killed, and out of room.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <set>

#include "tests/privatelog/log_world.h"

namespace {

class LogUnderAttack : public LogWorld {};

std::string contentOf(const std::string& raw) {
  return raw.substr(0, raw.find('\0'));
}

// ---- Cut at every byte

struct Line {
  const char* text;
  const char* path;  // null: no record for the table
  uint64_t inode;
};
constexpr Line kLines[] = {
    {"domain:corp", nullptr, 0},
    {"!Thu Nov 12 12:34:28 2026", nullptr, 0},
    {"/t/a:2049:131:500:100:10001:10000", "/t/a", 131},
    {"+/t/a.bak:2049:131", "/t/a.bak", 131},
    {"/t/failed:2049:150:500:100", nullptr, 150},
    {">/t/l:2049:140:500:100:10001:10000", "/t/l", 140},
    {"@staff:100:10000", nullptr, 0},
    {"=ann:500:100:10001:10000", nullptr, 0},
    {"/t/z:2049:160:500:100:10001:10000", "/t/z", 160},
};

// What the first `cut` bytes hold.
struct Cut {
  std::string text;
  std::vector<const Line*> complete;
  uint64_t tornInode = 0;  // of a tail that says all of a start
};

Cut cutAt(size_t cut) {
  Cut result;
  for (const Line& line : kLines) {
    const std::string whole = std::string(line.text) + "\n";
    const std::string part = whole.substr(0, cut - result.text.size());
    result.text += part;
    if (part == whole)
      result.complete.push_back(&line);
    else if (std::count(part.begin(), part.end(), ':') >= 4)
      result.tornInode = line.inode;
    if (result.text.size() == cut)
      break;
  }
  return result;
}

void expectRecords(const PrivateLog& log, const Cut& cut, const std::set<uint64_t>& allowed) {
  std::set<uint64_t> expected = allowed;
  for (const Line* line : cut.complete) {
    if (line->path == nullptr)
      continue;
    EXPECT_TRUE(log.hasPath({2049, line->inode}, line->path)) << line->text;
    expected.insert(line->inode);
  }
  for (uint64_t inode = 0; inode < 1000; ++inode) {
    const bool isInvented = log.hasInode({2049, inode}) && !expected.contains(inode);
    EXPECT_FALSE(isInvented) << inode;
  }
}

TEST_F(LogUnderAttack, CutAtEveryByteLosesAndInventsNothing) {
  const size_t whole = cutAt(SIZE_MAX).text.size();
  const size_t header = strlen("domain:corp\n");
  for (size_t at = 0; at <= whole; ++at) {
    const Cut cut = cutAt(at);
    SCOPED_TRACE(cut.text);
    writeFile(kLog, cut.text);
    PrivateLog log;
    ASSERT_EQ(log.loadPrivateLog(true), at >= header);
    expectRecords(log, cut, {});
    if (at < header)
      continue;
    ASSERT_TRUE(log.openPrivateLog(true));
    ASSERT_TRUE(change(log, {2049, 170}, "/t/new"));
    ASSERT_TRUE(log.close());
    PrivateLog again;
    ASSERT_TRUE(again.loadPrivateLog(true));
    EXPECT_TRUE(again.hasPath({2049, 170}, "/t/new"));
    expectRecords(again, cut, {170, cut.tornInode});
  }
}

TEST_F(LogUnderAttack, DateJoinsATornStartThatCanDoNoHarm) {
  writeFile(kLog, "domain:corp\n/gone:2049:131:500:100");
  run({1, 1}, "/a");
  EXPECT_EQ(withoutDates(readFile(kLog)),
            "domain:corp\n/gone:2049:131:500:100!DATE\n/a:1:1:500:100:10001:10000\n");
}

// ---- Killed

// Forks, lets `body` run, and kills the child after `delay` microseconds; 0 waits for its own end,
// which is a kill as well.
void runAndKill(const std::function<void()>& body, useconds_t delay) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    body();
    raise(SIGKILL);
  }
  if (delay > 0) {
    usleep(delay);
    kill(child, SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
}

TEST_F(LogUnderAttack, KilledAmongManyRecords) {
  for (useconds_t delay = 3000; delay < 60000; delay += 3000) {
    remove(kLog.c_str());
    runAndKill(
        [] {
          PrivateLog log;
          if (log.openPrivateLog(false)) {
            for (uint64_t i = 1;; ++i)
              change(log, {1, i}, "/t/" + std::to_string(i));
          }
        },
        delay);
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

TEST_F(LogUnderAttack, KilledAroundTheChange) {
  const struct {
    bool followed, isChanged;
    const char* ending;
  } rows[] = {
      {false, true, ":10001:10000\n"}, {true, true, ":10001:10000\n"}, {false, false, "\n"}};
  for (const auto& row : rows) {
    writeFile("/trees/file", "");
    ASSERT_EQ(chown("/trees/file", 500, 100), 0);
    remove("/trees/name");
    ASSERT_EQ(row.followed ? symlink("file", "/trees/name") : link("/trees/file", "/trees/name"),
              0);
    struct stat status = {};
    ASSERT_EQ(stat("/trees/name", &status), 0);
    const DevInode id = {status.st_dev, status.st_ino};
    remove(kLog.c_str());
    runAndKill(
        [&] {
          PrivateLog log;
          if (log.openPrivateLog(false) &&
              log.beginRecord(id, kOldIds, "/trees/name", row.followed) &&
              (!row.isChanged || chown("/trees/name", 10001, 10000) == 0))
            raise(SIGKILL);
        },
        0);
    const std::string start = contentOf(readFile(kLog));
    ASSERT_TRUE(start.ends_with(":500:100")) << start;

    PrivateLog log;
    ASSERT_TRUE(log.loadPrivateLog(true));
    EXPECT_FALSE(log.hasInode(id));
    ASSERT_TRUE(log.openPrivateLog(true));
    EXPECT_EQ(log.hasPath(id, "/trees/name"), row.isChanged);
    EXPECT_EQ(contentOf(readFile(kLog)), start + row.ending);
    EXPECT_EQ(log.changeCount, 0u);
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

// ---- Out of room

struct Shortage {
  const char* fileSystem;
  const char* options;
  bool limited;  // by RLIMIT_FSIZE
  int error;
};

void limitFileSize(rlim_t limit) {
  const rlimit limits = {limit, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limits);
}

// Changes until the log takes no more; all that was taken can be read back.
int fillTheLog(const Shortage& row) {
  signal(SIGXFSZ, SIG_IGN);
  if (row.limited)
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
  EXPECT_EQ(errno, row.error);
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
  const Shortage rows[] = {
      {"tmpfs", "size=32k", false, ENOSPC},
      {"tmpfs", "", true, EFBIG},
      {"ramfs", "", true, EFBIG},  // takes no reservation
  };
  for (const Shortage& row : rows) {
    ASSERT_EQ(mount("none", "/etc/orvantadc", row.fileSystem, 0, row.options), 0);
    joinDomain("corp");
    const RunResult result = runInChild([&row] { return fillTheLog(row); });
    EXPECT_EQ(result.status, 0) << row.fileSystem << result;
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
