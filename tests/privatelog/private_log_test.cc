#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <regex>

#include "services/properties.h"
#include "services/setting_keys.h"
#include "services/unique_fd.h"
#include "tests/privatelog/log_world.h"

namespace {

// The table grows several times, and the records fill several chunks.
TEST(ChangeTable, KeepsEveryRecordOfManyInOrder) {
  constexpr uint64_t kCount = 20001;
  const auto idOf = [](uint64_t i) { return InodeKey{static_cast<uint32_t>(i % 7), i / 21 * 5}; };
  ChangeTable table;
  EXPECT_EQ(table.count({0, 0}), 0U);
  for (uint64_t i = 0; i < kCount; ++i)
    table.insert({idOf(i), 0, {}, {}, i, 1});
  EXPECT_EQ(table.size(), kCount);
  for (uint64_t i = 0; i + 21 < kCount; i += 21) {
    std::vector<uint64_t> offsets;
    table.forEach(idOf(i),
                  [&](const LoggedChange& change) { offsets.push_back(change.pathOffset); });
    ASSERT_EQ(offsets, (std::vector<uint64_t>{i, i + 7, i + 14}));
  }
  EXPECT_EQ(table.count({7, 0}), 0U);
  EXPECT_EQ(table.count({0, 1}), 0U);
}

using PrivateLogTest = LogWorld;

TEST_F(PrivateLogTest, WritesTheSampleAndReadsItBack) {
  PrivateLog log;
  ASSERT_FALSE(log.loadPrivateLog(true));
  umask(0);
  ASSERT_TRUE(log.openPrivateLog(false));
  EXPECT_EQ(takeSnapshot("/etc/orvantadc").at("idshift.log").mode, 0644u);
  ASSERT_TRUE(change(log, {2049, 131}, "/home/ann/notes"));
  // A path longer than the pieces in which the log is read.
  const std::string longPath = "/home/ann/" + std::string(600000, 'l');
  ASSERT_TRUE(change(log, {2049, 135}, longPath));
  ASSERT_TRUE(log.addLinkRecord(Looked({2049, 131}, "/home/ann/Notes")));
  EXPECT_FALSE(log.hasPath(Looked({2049, 131}, "/home/ann/Notes")));
  ASSERT_TRUE(begin(log, {2049, 150}, "/home/ann/failed"));
  log.abandonRecord();
  ASSERT_TRUE(begin(log, {2049, 140}, "/home/ann/link", true));
  log.finishRecord(kNewIds);
  EXPECT_TRUE(log.hasPath(Looked({2049, 140}, "/home/ann/link")));
  log.addGroupUpdateRecord("staff", 100, 10000);
  log.addPasswdUpdateRecord("ann", kOldIds, kNewIds);
  EXPECT_EQ(log.changeCount, 4u);
  EXPECT_TRUE(log.close());
  log.release();
  // The date line has the time of the test.
  const std::regex date("!\\w{3} \\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d \\d{4}");
  EXPECT_EQ(std::regex_replace(readFile(kLog), date, "!DATE"),
            "domain:corp\n"
            "!DATE\n"
            "/home/ann/notes:2049:131:500:100:10001:10000\n" +
                longPath +
                ":2049:135:500:100:10001:10000\n"
                "+/home/ann/Notes:2049:131\n"
                "/home/ann/failed:2049:150:500:100\n"
                ">/home/ann/link:2049:140:500:100:10001:10000\n"
                "@staff:100:10000\n"
                "=ann:500:100:10001:10000\n");

  PrivateLog again;
  ASSERT_TRUE(again.loadPrivateLog(true));
  ASSERT_TRUE(again.openPrivateLog(true));
  const std::pair<uint64_t, std::string> known[] = {
      {131, "/home/ann/notes"}, {131, "/home/ann/Notes"}, {135, longPath}, {140, "/home/ann/link"}};
  for (const auto& [inode, path] : known)
    EXPECT_TRUE(again.hasPath(Looked({2049, inode}, path))) << inode;
  EXPECT_FALSE(again.hasInode(Looked({2049, 150}, "")));
}

TEST_F(PrivateLogTest, HeaderDecidesWhetherALogIsUsable) {
  const std::string invalid = "Warning: invalid private log file format - ignoring\n";
  const std::string mismatch =
      "Error: previous log was from domain Corp, current domain is corp\n"
      "  use --restart option to ignore previous log\n";
  const struct {
    const char* content;
    bool checkDomain, isUsable;
    std::string words;
  } rows[] = {
      {"", true, false, ""},
      {"domain:corp", true, false, ""},
      {"domain:corp\n", true, true, ""},
      {"domain:Corp\n", true, false, mismatch},
      {"domain:Corp\n", false, true, ""},
      {"!domain:corp\n", true, false, invalid},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.content);
    writeFile(kLog, row.content);
    const RunResult result =
        runInChild([&row] { return PrivateLog().loadPrivateLog(row.checkDomain) ? 1 : 0; });
    EXPECT_EQ(result.status, row.isUsable ? 1 : 0);
    EXPECT_EQ(result.err, row.words);
  }
}

// An incomplete change counts if the file has changed.
TEST_F(PrivateLogTest, LoadsTheChangesThatWereMade) {
  writeFile("/trees/changed", "");
  writeFile("/trees/same", "");
  ASSERT_EQ(chown("/trees/same", 500, 100), 0);
  writeFile(kLog, kHeader +
                      "/trees/changed:1:1:500:100:\n/trees/same:1:2:500:100:10001\n"
                      "/trees/gone:1:3:500:100:10001\n");
  PrivateLog log;
  EXPECT_TRUE(log.loadPrivateLog(true));
  EXPECT_TRUE(log.hasInode(Looked({1, 1}, "")));
  EXPECT_FALSE(log.hasInode(Looked({1, 2}, "")) || log.hasInode(Looked({1, 3}, "")));
}

// ---- Logs that somebody else may have written

TEST_F(PrivateLogTest, RefusesALogThatOthersMayHaveMade) {
  for (const char* makeLog :
       {"ln -s other idshift.log", "ln other idshift.log", "mkfifo -m 600 idshift.log",
        "mkdir idshift.log", "install -m 646 other idshift.log",
        "install -m 664 -g 5 other idshift.log", "install -m 644 -o 1000 other idshift.log"}) {
    SCOPED_TRACE(makeLog);
    writeFile("/etc/orvantadc/other", kHeader);
    ASSERT_EQ(runProgram({"sh", "-c", std::string("cd /etc/orvantadc; ") + makeLog}).status, 0);
    PrivateLog log;
    const bool isUsable = log.loadPrivateLog(true);
    EXPECT_FALSE(log.openPrivateLog(isUsable));
    EXPECT_FALSE(PrivateLog().openPrivateLog(false));
    EXPECT_EQ(readFile("/etc/orvantadc/other"), kHeader);
    ASSERT_EQ(remove(kLog.c_str()), 0);
  }
}

// ---- One run at a time, and no record lost between load and lock

// Everybody who may read the log could lock it. So a run locks a file of its own, which only root
// may open, whatever mode the file had before.
TEST_F(PrivateLogTest, NobodyButRootCanHoldTheLock) {
  recordLog();
  for (const mode_t mode : {0U, 0666U}) {
    std::filesystem::remove(paths::kRunLock);
    if (mode != 0)
      writeFile(paths::kRunLock, "", mode);
    run({1, 1}, "/a");
    EXPECT_EQ(takeSnapshot("/etc/orvantadc").at("idshift.lock").mode, 0600U);
  }
  const UniqueFd reader(open(kLog.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(reader.get(), LOCK_EX | LOCK_NB), 0);
  PrivateLog first;
  ASSERT_TRUE(first.openPrivateLog(true));
  PrivateLog second;
  EXPECT_FALSE(second.openPrivateLog(true));
  first.release();
  EXPECT_TRUE(second.openPrivateLog(true));
  const std::string why =
      "the private log is not opened for writing: another run holds /etc/orvantadc/idshift.lock";
  EXPECT_TRUE(contains(readFile("/tmp/records.log"), why));
}

TEST_F(PrivateLogTest, LogThatChangedSinceTheLoadOrCouldNotBeReadIsNotOpened) {
  PrivateLog sawNothing;
  ASSERT_FALSE(sawNothing.loadPrivateLog(true));
  run({1, 1}, "/a");
  PrivateLog sawOne;
  ASSERT_TRUE(sawOne.loadPrivateLog(true));
  run({1, 2}, "/b");
  PrivateLog sawItLater;
  ASSERT_TRUE(sawItLater.loadPrivateLog(true));
  std::filesystem::last_write_time(kLog, {});
  PrivateLog couldNotRead;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none = {0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_FALSE(couldNotRead.loadPrivateLog(true));
  setrlimit(RLIMIT_NOFILE, &limit);
  const std::string before = readFile(kLog);
  EXPECT_FALSE(sawNothing.openPrivateLog(false));
  EXPECT_FALSE(sawOne.openPrivateLog(true));
  EXPECT_FALSE(sawItLater.openPrivateLog(true));
  EXPECT_FALSE(couldNotRead.openPrivateLog(false));
  EXPECT_EQ(readFile(kLog), before);
}

// ---- Paths with line feeds

TEST_F(PrivateLogTest, LinesInsideAPathAreNotLoaded) {
  const std::string hostile = "/trees/x\n/etc/shadow:1:7:0:0:1:1\n@root:0:1\n!Thu Nov 12\ny";
  {
    PrivateLog log;
    ASSERT_TRUE(log.openPrivateLog(false));
    ASSERT_TRUE(change(log, {1, 1}, hostile));
    ASSERT_TRUE(change(log, {1, 2}, hostile));
    ASSERT_TRUE(log.addLinkRecord(Looked({1, 2}, hostile)));
    ASSERT_TRUE(change(log, {1, 3}, "/c"));
    // With one or two colons in its path the line of a failed change has as many fields as one that
    // was made.
    for (const char* path : {"/trees/x:1:8", "/trees/y:1:9"}) {
      ASSERT_TRUE(begin(log, {8, 9}, path));
      log.abandonRecord();
    }
    ASSERT_TRUE(change(log, {1, 4}, "/d"));
    // A line without an end, which the next path continues and ends where it likes.
    ASSERT_TRUE(begin(log, {1, 5}, "/open"));
    ASSERT_TRUE(change(log, {1, 6}, "/trees/z:0:0\ny"));
    ASSERT_TRUE(change(log, {1, 10}, "/e"));
  }
  PrivateLog log;
  ASSERT_TRUE(log.loadPrivateLog(true));
  for (uint64_t inode = 1; inode <= 10; ++inode)
    EXPECT_EQ(log.hasInode(Looked({1, inode}, "")), inode <= 6 || inode == 10) << inode;
  // Without its index, or with hardened off, the log is read literally.
  for (const bool hasIndex : {true, false}) {
    orvs::Props(false, false).set(orvs::PN::IDSHIFT_HARDENED, hasIndex ? "false" : "true");
    ASSERT_TRUE(hasIndex || remove(paths::kPrivateLogIndex) == 0);
    ASSERT_TRUE(log.loadPrivateLog(true));
    EXPECT_TRUE(log.hasInode(Looked({1, 7}, "")));
  }
}

}  // namespace
