#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "services/properties.h"
#include "services/setting_keys.h"
#include "tests/privatelog/log_world.h"

namespace {

class PrivateLogTest : public LogWorld {};

TEST_F(PrivateLogTest, WritesTheSampleAndReadsItBack) {
  PrivateLog log;
  ASSERT_FALSE(log.loadPrivateLog(true));
  umask(0);
  ASSERT_TRUE(log.openPrivateLog(false));
  EXPECT_EQ(takeSnapshot("/etc/orvantadc").at("idshift.log").mode, 0644u);
  ASSERT_TRUE(change(log, {2049, 131}, "/home/ann/notes"));
  // Longer than the pieces in which the log is read.
  const std::string longPath = "/home/ann/" + std::string(600000, 'l');
  ASSERT_TRUE(change(log, {2049, 135}, longPath));
  ASSERT_TRUE(log.addLinkRecord({2049, 131}, "/home/ann/notes.bak"));
  EXPECT_FALSE(log.hasPath({2049, 131}, "/home/ann/notes.bak"));
  ASSERT_TRUE(log.beginRecord({2049, 150}, kOldIds, "/home/ann/failed", false));
  log.abandonRecord();
  ASSERT_TRUE(log.beginRecord({2049, 140}, kOldIds, "/home/ann/link", true));
  log.finishRecord(kNewIds);
  log.addGroupUpdateRecord("staff", 100, 10000);
  log.addPasswdUpdateRecord("ann", kOldIds, kNewIds);
  EXPECT_EQ(log.changeCount, 4u);
  EXPECT_TRUE(log.close());
  EXPECT_EQ(withoutDates(readFile(kLog)),
            "domain:corp\n"
            "!DATE\n"
            "/home/ann/notes:2049:131:500:100:10001:10000\n" +
                longPath +
                ":2049:135:500:100:10001:10000\n"
                "+/home/ann/notes.bak:2049:131\n"
                "/home/ann/failed:2049:150:500:100\n"
                ">/home/ann/link:2049:140:500:100:10001:10000\n"
                "@staff:100:10000\n"
                "=ann:500:100:10001:10000\n");

  PrivateLog again;
  ASSERT_TRUE(again.loadPrivateLog(true));
  ASSERT_TRUE(again.openPrivateLog(true));
  EXPECT_TRUE(again.hasPath({2049, 131}, "/home/ann/notes"));
  EXPECT_TRUE(again.hasPath({2049, 131}, "/home/ann/notes.bak"));
  EXPECT_TRUE(again.hasPath({2049, 135}, longPath));
  EXPECT_TRUE(again.hasPath({2049, 140}, "/home/ann/link"));
  EXPECT_FALSE(again.hasInode({2049, 150}));
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
      {"\n", true, false, invalid},
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

// An incomplete change counts when the file has changed. A device number that a log cannot hold is
// read back as the largest.
TEST_F(PrivateLogTest, LoadsTheChangesThatWereMade) {
  writeFile("/trees/changed", "");
  writeFile("/trees/same", "");
  ASSERT_EQ(chown("/trees/same", 500, 100), 0);
  writeFile(kLog, kHeader +
                      "/trees/changed:1:1:500:100:\n/trees/same:1:2:500:100:10001\n"
                      "/trees/gone:1:3:500:100:10001\n/a:18446744073709551615:4:1:1:2:2\n");
  PrivateLog log;
  EXPECT_TRUE(log.loadPrivateLog(true));
  const std::vector<std::pair<DevInode, bool>> rows = {
      {{1, 1}, true}, {{1, 2}, false}, {{1, 3}, false}, {{INT64_MAX, 4}, true}};
  for (const auto& [id, isKnown] : rows)
    EXPECT_EQ(log.hasInode(id), isKnown) << id.inode;
}

// ---- Who may have written the log

TEST_F(PrivateLogTest, RefusesALogThatOthersMayHaveMade) {
  const std::string other = "/etc/orvantadc/other";
  const auto make = [](mode_t mode, uid_t uid, gid_t gid) {
    writeFile(kLog, kHeader, mode);
    return chown(kLog.c_str(), uid, gid);
  };
  const struct {
    const char* what;
    std::function<int()> make;
  } rows[] = {
      {"symbolic link", [&] { return symlink(other.c_str(), kLog.c_str()); }},
      {"hard link", [&] { return link(other.c_str(), kLog.c_str()); }},
      {"FIFO", [] { return mkfifo(kLog.c_str(), 0600); }},
      {"directory", [] { return mkdir(kLog.c_str(), 0700); }},
      {"writable by others", [&] { return make(0646, 0, 0); }},
      {"writable by a group", [&] { return make(0664, 0, 5); }},
      {"another owner", [&] { return make(0644, 1000, 0); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    writeFile(other, kHeader);
    ASSERT_EQ(row.make(), 0);
    PrivateLog log;
    const bool isUsable = log.loadPrivateLog(true);
    EXPECT_FALSE(log.openPrivateLog(isUsable));
    PrivateLog restarted;
    EXPECT_FALSE(restarted.openPrivateLog(false));
    EXPECT_EQ(readFile(other), kHeader);
    ASSERT_EQ(remove(kLog.c_str()), 0);
  }
}

// ---- No record lost between load and lock

TEST_F(PrivateLogTest, LogThatChangedSinceTheLoadIsNotOpened) {
  PrivateLog sawNothing;
  ASSERT_FALSE(sawNothing.loadPrivateLog(true));
  run({1, 1}, "/a");
  PrivateLog sawOne;
  ASSERT_TRUE(sawOne.loadPrivateLog(true));
  run({1, 2}, "/b");
  const std::string before = readFile(kLog);
  EXPECT_FALSE(sawNothing.openPrivateLog(false));
  EXPECT_FALSE(sawOne.openPrivateLog(true));
  EXPECT_EQ(readFile(kLog), before);
}

TEST_F(PrivateLogTest, LogThatCouldNotBeReadIsNotTruncated) {
  run({1, 1}, "/a");
  const std::string before = readFile(kLog);
  const RunResult result = runInChild([] {
    orvs::Props(false, false);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    PrivateLog log;
    EXPECT_FALSE(log.loadPrivateLog(true));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_FALSE(log.openPrivateLog(false));
    return 0;
  });
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(readFile(kLog), before);
}

// ---- Paths that hold line feeds

const std::string kHostile = "/trees/x\n/etc/shadow:1:7:0:0:1:1\n@root:0:1\n!Thu Nov 12\ny";

TEST_F(PrivateLogTest, LinesInsideAPathAreNotLoaded) {
  {
    PrivateLog log;
    ASSERT_TRUE(log.openPrivateLog(false));
    ASSERT_TRUE(change(log, {1, 1}, kHostile));
    ASSERT_TRUE(change(log, {1, 2}, kHostile));
    ASSERT_TRUE(log.addLinkRecord({1, 2}, kHostile));
    ASSERT_TRUE(change(log, {1, 3}, "/c"));
  }
  PrivateLog log;
  ASSERT_TRUE(log.loadPrivateLog(true));
  EXPECT_FALSE(log.hasInode({1, 7}));
  EXPECT_TRUE(log.hasInode({1, 3}));
  const RunResult result = runInChild([] {
    orvs::Props(false, false).set(orvs::PN::IDSHIFT_HARDENED, "false");
    PrivateLog trusting;
    EXPECT_TRUE(trusting.loadPrivateLog(true));
    EXPECT_TRUE(trusting.hasInode({1, 7}));
    return 0;
  });
  EXPECT_EQ(result.status, 0) << result;
  PrivateLog restarted;
  ASSERT_TRUE(restarted.openPrivateLog(false));
  EXPECT_EQ(getxattr(kLog.c_str(), "trusted.idshift.lf", nullptr, 0), -1);
}

// One or two colons in the path of a failed change give it the fields of one that was made.
TEST_F(PrivateLogTest, FailedChangeWithColonsIsNotLoaded) {
  PrivateLog log;
  ASSERT_TRUE(log.openPrivateLog(false));
  const auto fail = [&log](const char* path) {
    ASSERT_TRUE(log.beginRecord({8, 9}, kOldIds, path, false));
    log.abandonRecord();
  };
  fail("/trees/x:1:7");
  fail("/trees/y:1:8");
  ASSERT_TRUE(change(log, {1, 3}, "/c"));
  // Left open, and continued by a path that ends the line where it wants to.
  ASSERT_TRUE(log.beginRecord({1, 4}, kOldIds, "/open", false));
  ASSERT_TRUE(change(log, {1, 5}, "/trees/z:0:0\ny"));
  ASSERT_TRUE(change(log, {1, 6}, "/d"));
  ASSERT_TRUE(log.close());
  PrivateLog again;
  ASSERT_TRUE(again.loadPrivateLog(true));
  for (const auto& [inode, isKnown] :
       {std::pair{7u, false}, {8u, false}, {3u, true}, {4u, false}, {6u, true}})
    EXPECT_EQ(again.hasInode({1, inode}), isKnown) << inode;
}

// A run that died between the attribute and the bytes leaves a range behind the end. Ranges that
// cannot be read are not taken for none.
TEST_F(PrivateLogTest, RangeWithoutItsRecordHidesNothing) {
  run({1, 1}, "/a");
  const auto setRanges = [](const std::string& bytes) {
    ASSERT_EQ(setxattr(kLog.c_str(), "trusted.idshift.lf", bytes.data(), bytes.size(), 0), 0);
  };
  setRanges(LineFeedRanges::encode({{readFile(kLog).size() - 1, 100000}}));
  run({1, 2}, "/b");
  PrivateLog log;
  ASSERT_TRUE(log.loadPrivateLog(true));
  EXPECT_TRUE(log.hasInode({1, 2}));
  setRanges("\x80");
  EXPECT_FALSE(PrivateLog().loadPrivateLog(true));
  EXPECT_FALSE(PrivateLog().openPrivateLog(true));
}

TEST_F(PrivateLogTest, PathWithLineFeedNeedsTheAttribute) {
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
