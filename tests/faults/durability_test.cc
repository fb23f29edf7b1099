// The power fails: account files and log are on one ext4 disk, the tree is on another, and both
// lose what was not synced. After status 0 nothing is lost. Before, every change that is older than
// a second has its record, and there is a way back from whatever the disks hold.
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <utility>

#include "services/paths.h"
#include "services/unique_fd.h"
#include "tests/faults/cut_disks.h"
#include "tests/faults/fault_world.h"
#include "tests/support/attributes.h"

namespace {

using Clock = std::chrono::steady_clock;

class Durability : public FaultTest {
 protected:
  void arrange() override {
    FaultTest::arrange();
    if (const std::string reason = disks.create(); !reason.empty())
      GTEST_SKIP() << reason;
  }

  void prepare() {
    resetWorld();
    disks.flush();
  }

  // Expects that a power cut and a new start lose nothing: the log, the account files and the
  // owners stay as they are now.
  void expectCutLosesNothing() {
    const TreeSnapshot tree = takeSnapshot("/trees/t");
    const std::string texts[] = {readFile(paths::kPrivateLog), readFile(paths::kPasswd),
                                 readFile(paths::kGroup)};
    disks.cutPower(kNothing);
    disks.startAgain();
    EXPECT_EQ(takeSnapshot("/trees/t").owners(), tree.owners());
    EXPECT_EQ(readFile(paths::kPrivateLog), texts[0]);
    EXPECT_EQ(readFile(paths::kPasswd), texts[1]);
    EXPECT_EQ(readFile(paths::kGroup), texts[2]);
  }

  // A commit whose changes are lost and whose log is not. Something else on the machine may sync
  // the disk of the tree meanwhile; then another try is made.
  void loseChanges() {
    const auto isSync = [](const SystemCall& call) { return call.number == SYS_syncfs; };
    const CallHook cut = [&](const SystemCall&) {
      disks.cutPower(kNothing);
      return CallVerdict{CallVerdict::kKill};
    };
    for (unsigned tries = 0; tries < 20; ++tries) {
      usleep(tries * 50'000);
      prepare();
      plantAttributes();
      setAcl("/trees/t/dir", "u:501:rw");  // beside its default ACL
      start = takeSnapshot("/trees/t");
      disks.flush();
      EXPECT_EQ(runTraced(commitAll(), atCall(isSync, 1, cut)).signal, SIGKILL);
      disks.startAgain();
      EXPECT_TRUE(contains(readLog(), "/trees/t/file:"));
      if (sameTree(start, takeSnapshot("/trees/t")))
        return;
    }
    EXPECT_TRUE(sameTree(start, takeSnapshot("/trees/t")));
  }

  // Expects that one more commit makes all of them, whatever was done to the inodes meanwhile, and
  // that undos lead back.
  void expectLostChangesMade() {
    EXPECT_EQ(shell("cd /trees/t; find . ! -type l -execdir chmod u+r {} +").status, 0);
    expectTheRestConverts();
    for (const char* path : {"/trees/t/foreign", "/trees/t/file", "/trees/t/dir/sub"})
      EXPECT_EQ(aclOf(path), "u:10001:r u:50501:rw g:10000:r") << path;
    EXPECT_EQ(aclOf("/trees/t/dir", kDefaultAcl), "u:50501:r");
    expectUndosRestore();
    for (const auto& [path, state] : takeSnapshot("/trees/t").entries)
      EXPECT_EQ(state.acls, start.at(path).acls) << path;
  }

  void expectAWayOn() {
    forgiveLostRecords();
    expectTheRestConverts();
    expectUndosRestore();
    expectTheRestConverts();
    expectUndosRestore();
  }

  CutDisks disks;
};

}  // namespace

TEST_F(Durability, WhatEndedWithStatusZeroIsOnTheDisks) {
  prepare();
  ASSERT_EQ(runProgram(commitAll()).status, 0);
  expectCutLosesNothing();
  EXPECT_EQ(ownerOf("/trees/t/dir/sub/deep"), "10001:10000");
  ASSERT_EQ(runProgram(undo()).status, 0);
  expectCutLosesNothing();
  EXPECT_TRUE(isRestored());
}

// A log without its index is read literally, forged lines in names included. A file system may
// write the log back early on its own, so the index must be on the disk before any line of the log.
TEST_F(Durability, NoLineIsOnTheDiskWithoutAnIndex) {
  prepare();
  const CallHook cut = [&](const SystemCall&) {
    const UniqueFd log(open(paths::kPrivateLog, O_RDWR | O_CLOEXEC));
    EXPECT_EQ(fsync(log.get()), 0);
    disks.cutPower(kNothing);
    return CallVerdict{CallVerdict::kKill};
  };
  EXPECT_EQ(runTraced(commitAll(), atCall(isChange, 2, cut)).signal, SIGKILL);
  disks.startAgain();
  EXPECT_TRUE(contains(readLog(), "/trees/t/"));
  EXPECT_TRUE(readFile(paths::kPrivateLogIndex).starts_with('I'));
}

TEST_F(Durability, ACutAtAnyCallLeavesAWayOn) {
  const uint64_t stride = sampled(47);
  for (uint64_t index = 101; index < kEndless; index += stride) {
    const auto writtenBack = static_cast<WrittenBack>(index % kWrittenBackCount);
    SCOPED_TRACE("cut before call " + std::to_string(index) + ", written back " +
                 std::to_string(writtenBack));
    prepare();
    const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
      if (call.index != index)
        return CallVerdict{};
      disks.cutPower(writtenBack);
      return CallVerdict{CallVerdict::kKill};
    });
    if (result.signal == 0)
      break;
    disks.startAgain();
    expectAccountFilesWhole();
    expectAWayOn();
    if (HasFailure())
      return;
  }
}

// The log is on its disk; the changes that it records are not.
TEST_F(Durability, ChangesThatWereLostAreMadeByTheNextCommit) {
  keepAttributes();
  loseChanges();
  expectLostChangesMade();
}

TEST_F(Durability, ChangesThatWereLostAreMadeEvenByTheCommitAfterTheNext) {
  keepAttributes();
  loseChanges();
  EXPECT_EQ(runProgram(commitAll()).status, 0);
  EXPECT_EQ(runProgram(undo()).status, 0);
  expectLostChangesMade();
  for (uint64_t nth = 1;; nth += sampled(3)) {
    SCOPED_TRACE("killed behind change " + std::to_string(nth));
    loseChanges();
    const CallFilter isBehindChange = [wasChange = false](const SystemCall& call) mutable {
      return std::exchange(wasChange, isChange(call));
    };
    const CallHook kill = [](const SystemCall&) { return CallVerdict{CallVerdict::kKill}; };
    if (runTraced(commitAll(), atCall(isBehindChange, nth, kill)).signal == 0)
      break;
    expectLostChangesMade();
    if (HasFailure())
      return;
  }
}

// After the changes the walk visits entries that need no record.
TEST_F(Durability, ACutLosesTheRecordsOfOneSecondAtMost) {
  std::filesystem::create_directories("/trees/idle/a/b/c/d/e/f/g");
  std::vector<std::string> argv = commitAll();
  argv.emplace_back("/trees/idle");
  for (size_t last = sampled(8) == 1 ? 2 : 21; last <= 21; ++last) {
    SCOPED_TRACE("cut at step " + std::to_string(last));
    prepare();
    std::vector<Clock::time_point> times;
    std::vector<std::string> atThatTime;  // the lines of the log at each of these times
    const TracedResult result = runTraced(argv, [&](const SystemCall& call) {
      if (call.number == SYS_rename || !(isChange(call) || call.number == SYS_fchdir))
        return CallVerdict{};
      if (times.size() == last) {
        disks.cutPower(kTree);
        return CallVerdict{CallVerdict::kKill};
      }
      usleep(250000);
      times.push_back(Clock::now());
      const std::string log = readLog();
      atThatTime.push_back(log.substr(0, log.find('\0')));
      return CallVerdict{};
    });
    ASSERT_EQ(result.signal, SIGKILL);
    disks.startAgain();
    // The first step that is made more than a second after a record syncs the record. Before the
    // first sync even the log may be lost.
    const std::string log = readLog();
    for (size_t i = 0; i < times.size(); ++i) {
      if (times.back() - times[i] <= std::chrono::milliseconds(1100))
        continue;
      EXPECT_TRUE(log.starts_with(atThatTime[i])) << i << "\n" << atThatTime[i] << "\n" << log;
    }
    expectAWayOn();
    if (HasFailure())
      return;
  }
}
