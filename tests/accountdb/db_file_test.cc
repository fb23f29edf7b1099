// One account file: its locks, its replacement, and what is left when something fails.
#include "accountdb/db_file.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include "accountdb/db_command.h"
#include "accountdb/lock_file.h"
#include "services/unique_fd.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

constexpr const char* kBefore =
    "root:x:0:0:root:/root:/bin/sh\n"
    "ann:x:500:100::/home/ann:/bin/sh\n";

class RewriteTest : public SandboxTest {
 protected:
  void arrange() override {
    setPasswd(kBefore);
    recordLog();
  }

  static EntryState stateOf(const char* name) { return takeSnapshot("/etc").at(name); }

  // The passwd file is the same in every respect, and nothing but a backup lies beside it.
  static void expectUntouched(const EntryState& before) {
    EXPECT_EQ(stateOf("passwd"), before);
    EXPECT_EQ(leftovers(), std::set<std::string>{});
    EXPECT_EQ(DBFile::lockCount, 0);
  }
};

std::string deadPid() {
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return std::to_string(child);
}

// Whether another process would have to wait for the lock of lckpwdf().
bool systemLockHeld() {
  return runInChild([] {
           const UniqueFd file(::open("/etc/.pwd.lock", O_WRONLY | O_CLOEXEC));
           struct flock lock = {};
           lock.l_type = F_WRLCK;
           EXPECT_EQ(::fcntl(file.get(), F_GETLK, &lock), 0);
           return lock.l_type != F_UNLCK ? 1 : 0;
         }).status == 1;
}

bool modifyAnn() {
  return DBPwCommand().modify("ann:x:9500:9100::/home/ann:/bin/sh");
}

bool replacePasswd(const std::list<std::string>& lines) {
  DBFile file("/etc/passwd");
  const bool done = file.lock() && file.open() && file.closeUpdate(lines);
  file.unlock();
  return done;
}

// Locking

TEST_F(RewriteTest, ExistingLocks) {
  const std::string zero(1, '\0');
  const std::string own = std::to_string(::getpid()) + zero;
  const struct {
    const char* what;
    std::string content;
    bool broken;
  } rows[] = {
      {"live", std::to_string(::getppid()), false},
      {"our own", own, false},
      {"dead", deadPid() + zero, true},
      {"dead, with text behind", " " + deadPid() + "x", true},
      {"nobody's", "0", false},
      {"empty", "", false},
      {"pid behind 31 bytes", std::string(31, ' ') + deadPid(), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    writeFile("/etc/passwd.lock", row.content);
    EXPECT_EQ(takeLockFile("/etc/passwd"), row.broken);
    EXPECT_EQ(readFile("/etc/passwd.lock"), row.broken ? own : row.content);
    EXPECT_EQ(leftovers(), std::set<std::string>{"passwd.lock"});
  }
}

TEST_F(RewriteTest, AnOwnerWhoMayNotBeSignalledCountsAsDead) {
  ASSERT_EQ(::mkdir("/tmp/db", 0777), 0);
  ASSERT_EQ(::chmod("/tmp/db", 0777), 0);
  writeFile("/tmp/db/passwd.lock", std::to_string(::getpid()), 0666);
  RunOptions asAnn;
  asAnn.uid = 500;
  const RunResult run = runInChild([] { return takeLockFile("/tmp/db/passwd") ? 0 : 1; }, asAnn);
  EXPECT_EQ(run.status, 0) << run;
}

TEST_F(RewriteTest, ALeftoverPidFileRefusesTheLock) {
  const std::string pidFile = "/etc/passwd." + std::to_string(::getpid());
  writeFile(pidFile, "theirs");
  EXPECT_FALSE(takeLockFile("/etc/passwd"));
  EXPECT_EQ(readFile(pidFile), "theirs");
  EXPECT_FALSE(exists("/etc/passwd.lock"));
}

TEST_F(RewriteTest, TheSystemLockIsHeldUntilTheLastFileIsUnlockedOrOneCannotBeLocked) {
  DBFile passwd("/etc/passwd"), group("/etc/group");
  ASSERT_TRUE(passwd.lock() && group.lock());
  passwd.unlock();
  passwd.unlock();
  EXPECT_FALSE(exists("/etc/passwd.lock"));
  EXPECT_TRUE(systemLockHeld());
  group.unlock();
  EXPECT_FALSE(systemLockHeld());
  EXPECT_EQ(leftovers(), std::set<std::string>{});

  ASSERT_TRUE(passwd.lock());
  writeFile("/etc/group.lock", std::to_string(::getppid()));
  EXPECT_FALSE(group.lock() || group.isLocked() || systemLockHeld());
  EXPECT_TRUE(isLogged(" cannot lock file /etc/group."));
  passwd.unlock();
}

// Reading and replacing

TEST_F(RewriteTest, OpensAndReplacesNothingThatItMayNot) {
  const EntryState before = stateOf("passwd");
  DBFile file("/etc/passwd");
  EXPECT_FALSE(file.open());  // neither read-only nor locked
  file.setReadOnly(true);
  EXPECT_FALSE(file.openPath("/etc/missing"));
  EXPECT_TRUE(isLogged(" cannot open file /etc/missing."));
  EXPECT_TRUE(file.openPath("/etc/passwd"));
  EXPECT_FALSE(file.closeUpdate({"a"}));
  file.setReadOnly(false);
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not locked
  file.close();
  EXPECT_TRUE(file.lock());
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not open
  file.unlock();
  expectUntouched(before);
}

TEST_F(RewriteTest, OwnerStaysAndModeIsMasked) {
  const struct {
    mode_t before, after;
    uid_t uid;
    gid_t gid;
  } rows[] = {{0640, 0640, 0, 42}, {0666, 0664, 500, 0}, {06755, 0644, 1, 2}, {0, 0, 0, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << std::oct << row.before);
    ASSERT_EQ(::chown("/etc/passwd", row.uid, row.gid), 0);
    ASSERT_EQ(::chmod("/etc/passwd", row.before), 0);
    const mode_t maskBefore = ::umask(027);
    ASSERT_TRUE(replacePasswd({"a", "b"}));
    EXPECT_EQ(::umask(maskBefore), 027u);
    EXPECT_EQ(readFile("/etc/passwd"), "a\nb\n");
    const EntryState state = stateOf("passwd");
    EXPECT_EQ(state.mode, row.after);
    EXPECT_EQ(state.uid, row.uid);
    EXPECT_EQ(state.gid, row.gid);
  }
}

TEST_F(RewriteTest, TheBackupIsTheOldFileWithItsTime) {
  const struct utimbuf old = {1000000, 2000000};
  ASSERT_EQ(::utime("/etc/passwd", &old), 0);
  ASSERT_TRUE(replacePasswd({}));
  EXPECT_EQ(readFile("/etc/passwd-"), kBefore);
  struct stat info = {};
  EXPECT_EQ(::stat("/etc/passwd-", &info), 0);
  EXPECT_EQ(info.st_mtime, 2000000);
  EXPECT_EQ(info.st_mode & ALLPERMS, 0600u);

  writeFile("/etc/passwd-", "older", 0640);  // the next backup keeps that mode
  ASSERT_TRUE(replacePasswd({"a"}));
  EXPECT_EQ(readFile("/etc/passwd-"), "");
  EXPECT_EQ(stateOf("passwd-").mode, 0640u);
}

// Faults

TEST_F(RewriteTest, ATemporaryNameThatIsALinkIsNotFollowed) {
  const EntryState before = stateOf("passwd");
  writeFile("/etc/victim", "keep");
  ASSERT_EQ(::symlink("victim", "/etc/passwd+"), 0);
  EXPECT_FALSE(modifyAnn());
  EXPECT_EQ(readFile("/etc/victim"), "keep");
  expectUntouched(before);
}

TEST_F(RewriteTest, EachFailureHasItsWords) {
  const EntryState before = stateOf("passwd");
  const std::pair<std::string, std::string> rows[] = {
      // a directory in the way, the words
      {"/etc/.pwd.lock", " lock lckpwdf() failed."},
      {"/etc/passwd-", " closeUpdate cannot create backup file /etc/passwd- for /etc/passwd."},
      {"/etc/passwd+", " closeUpdate cannot open temporary file /etc/passwd+ for writing."}};
  for (const auto& [obstacle, words] : rows) {
    std::filesystem::remove(obstacle);
    ASSERT_EQ(::mkdir(obstacle.c_str(), 0755), 0);
    EXPECT_FALSE(modifyAnn());
    EXPECT_TRUE(isLogged(words)) << words;
    std::filesystem::remove(obstacle);
    expectUntouched(before);
  }
  // A mount point is not replaced.
  ASSERT_EQ(::mount("/etc/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
  EXPECT_FALSE(modifyAnn());
  EXPECT_TRUE(isLogged(" closeUpdate cannot rename file /etc/passwd+ to /etc/passwd."));
  expectUntouched(before);
  ::umount2("/etc/passwd", MNT_DETACH);
}

}  // namespace
}  // namespace orvs
