// The lock of one account file, and the system-wide lock above it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "accountdb/db_file.h"
#include "accountdb/lock_file.h"
#include "services/unique_fd.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

using LockTest = SandboxTest;

pid_t deadPid() {
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

std::string ownLock() {
  return std::to_string(::getpid()) + std::string(1, '\0');
}

// Whether another process would have to wait for the lock of lckpwdf().
bool systemLockHeld() {
  return runInChild([] {
           const UniqueFd file(::open("/etc/.pwd.lock", O_WRONLY | O_CLOEXEC));
           struct flock lock = {};
           lock.l_type = F_WRLCK;
           return file && ::fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? 1
                                                                                             : 0;
         }).status == 1;
}

TEST_F(LockTest, ExistingLocks) {
  const struct {
    const char* what;
    std::string content;
    bool broken;
  } rows[] = {
      {"live", std::to_string(::getppid()), false},
      {"our own", ownLock(), false},
      {"dead", std::to_string(deadPid()) + std::string(1, '\0'), true},
      {"dead, with text behind", " " + std::to_string(deadPid()) + "x", true},
      {"zero", "0", false},
      {"zero byte first", std::string(1, '\0') + std::to_string(deadPid()), false},
      {"text", "busy", false},
      {"empty", "", false},
      {"pid behind 31 bytes", std::string(31, ' ') + std::to_string(deadPid()), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    writeFile("/etc/passwd.lock", row.content);
    EXPECT_EQ(takeLockFile("/etc/passwd"), row.broken);
    EXPECT_EQ(readFile("/etc/passwd.lock"), row.broken ? ownLock() : row.content);
    EXPECT_EQ(leftovers(), std::set<std::string>{"passwd.lock"});
  }
}

TEST_F(LockTest, AnOwnerWhoMayNotBeSignalledCountsAsDead) {
  ASSERT_EQ(::mkdir("/tmp/db", 0777), 0);
  ASSERT_EQ(::chmod("/tmp/db", 0777), 0);
  writeFile("/tmp/db/passwd.lock", std::to_string(::getpid()), 0666);
  RunOptions asAnn;
  asAnn.uid = 500;
  const RunResult run = runInChild([] { return takeLockFile("/tmp/db/passwd") ? 0 : 1; }, asAnn);
  EXPECT_EQ(run.status, 0) << run;
}

TEST_F(LockTest, ALeftoverPidFileRefusesTheLock) {
  const std::string pidFile = "/etc/passwd." + std::to_string(::getpid());
  writeFile(pidFile, "theirs");
  EXPECT_FALSE(takeLockFile("/etc/passwd"));
  EXPECT_EQ(readFile(pidFile), "theirs");
  EXPECT_FALSE(exists("/etc/passwd.lock"));
}

TEST_F(LockTest, TheSystemLockIsHeldUntilTheLastFileIsUnlocked) {
  DBFile passwd("/etc/passwd");
  DBFile group("/etc/group");
  ASSERT_TRUE(passwd.lock());
  ASSERT_TRUE(group.lock());
  EXPECT_EQ(DBFile::lockCount, 2);
  passwd.unlock();
  passwd.unlock();
  EXPECT_FALSE(exists("/etc/passwd.lock"));
  EXPECT_TRUE(systemLockHeld());
  group.unlock();
  EXPECT_FALSE(systemLockHeld());
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

TEST_F(LockTest, AFailedSecondLockGivesTheSystemLockBack) {
  recordLog();
  DBFile passwd("/etc/passwd");
  DBFile group("/etc/group");
  ASSERT_TRUE(passwd.lock());
  writeFile("/etc/group.lock", std::to_string(::getppid()));
  EXPECT_FALSE(group.lock());
  EXPECT_FALSE(group.isLocked());
  EXPECT_FALSE(systemLockHeld());
  EXPECT_TRUE(lastRecord().ends_with("cannot lock file /etc/group."));
  passwd.unlock();
  EXPECT_EQ(DBFile::lockCount, 0);
}

}  // namespace
}  // namespace orvs
