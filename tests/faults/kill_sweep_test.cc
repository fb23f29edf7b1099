// The real program is killed before its Nth system call, and right before and after each change,
// before it can finish the record in memory. A long run takes every N, a plain one a sample. A
// further commit and one undo for each section then lead back to the start.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"
#include "tests/support/attributes.h"

namespace {

// Kills before calls, and before and after changes. Where the log is mapped, no call lies between a
// change and the end of its record.
std::vector<Instants> kills(uint64_t callStride, uint64_t changeStride) {
  const CallHook before = [](const SystemCall&) { return CallVerdict{CallVerdict::kKill}; };
  const CallHook after = [](const SystemCall&) { return CallVerdict{CallVerdict::kKillAfter}; };
  return {{"killed before call", isAnyCall, callStride, before},
          {"killed before change", isChange, changeStride, before},
          {"killed after change", isChange, changeStride, after}};
}

class KillSweep : public FaultTest {
 protected:
  KillSweep() {
    annsUid = "501";
    zoneUsers = "ann:x:501:10000:::\ndora:x:600:10000:::\n";
  }

  void killEach(const std::vector<std::string>& commit,
                uint64_t stride,
                uint64_t changes = sampled(1)) {
    sweep(kills(stride, changes), [&](const CallHook& hook) {
      resetWorld();
      prepare();
      const bool isKilled = runTraced(commit, hook).signal != 0;
      expectEveryChangeRecorded();
      expectAccountFilesWhole();
      expectTheRestConverts();
      checkConverted();
      expectUndosRestore();
      if (keepsBits) {
        EXPECT_TRUE(sameTree(start, takeSnapshot("/trees/t")));
      }
      return isKilled;
    });
  }

  void killEachOfUndo(uint64_t stride, uint64_t changes = sampled(1)) {
    sweep(kills(stride, changes), [&](const CallHook& hook) {
      resetWorld();
      prepare();
      EXPECT_EQ(runProgram(commitAll()).status, 0);
      const bool isKilled = runTraced(undo(), hook).signal != 0;
      expectAccountFilesWhole();
      // A second undo backs out the rest of the section.
      EXPECT_EQ(runProgram(undo()).status, 0);
      EXPECT_TRUE(isRestored());
      if (keepsBits) {
        EXPECT_TRUE(sameTree(start, takeSnapshot("/trees/t")));
      }
      return isKilled;
    });
  }

  // Plants files with names that look like lines of the log, and with special bits that are to be
  // restored.
  void addHostileNames() {
    addSetting("idshift.preserve.execution.bits = true");
    keepsBits = true;
    prepare = [this] {
      for (const std::string& name :
           {std::string("a:1:2:3:4:5:6"),
            std::string("x\n/trees/t/foreign:1:9:0:0:501:10000\n@lp:7:9"), std::string("\x01\xff"),
            std::string("#\n=root:0:0:1:1"), std::string(255, 'n')}) {
        const std::string path = "/trees/t/dir/" + name;
        writeFile(path, "", 0755);
        ASSERT_EQ(chown(path.c_str(), 501, 101), 0);
        ASSERT_EQ(chmod(path.c_str(), 04755), 0);
      }
      usleep(12'000);
      start = takeSnapshot("/trees/t");
    };
  }

  void addAttributes() {
    keepAttributes();
    keepsBits = true;
    prepare = [this] { plantAttributes(); };
    checkConverted = [this] {
      for (const char* name : {"file", "foreign", "dir/sub"})
        EXPECT_EQ(aclOf("/trees/t/" + std::string(name)), "u:501:r u:50501:rw g:10000:r") << name;
      const TreeSnapshot now = takeSnapshot("/trees/t");
      for (const char* name : {"suid", "file"})
        EXPECT_EQ(now.at(name).capability, start.at(name).capability) << name;
    };
  }

  std::function<void()> prepare = [] {};
  std::function<void()> checkConverted = [] {};
  bool keepsBits = false;
};

}  // namespace

TEST_F(KillSweep, CommitAll) {
  killEach(commitAll(), sampled(29));
}

TEST_F(KillSweep, Undo) {
  killEachOfUndo(sampled(29));
}

// On a file system that does not keep reserved room the log is written record by record. Only
// entries are changed here; account_sweep_test.cc has the account phase.
TEST_F(KillSweep, WithAWrittenLog) {
  ASSERT_EQ(mount("ramfs", "/etc/orvantadc", "ramfs", 0, nullptr), 0);
  joinDomain("corp");
  killEach({binaryPath("idshift"), "-c", "/trees/t"}, sampled(31));
  killEachOfUndo(sampled(31));
}

TEST_F(KillSweep, WithNamesLikeLinesAndBitsPreserved) {
  addHostileNames();
  killEach(commitAll(), sampled(83), sampled(5));
  killEachOfUndo(sampled(83), sampled(5));
}

TEST_F(KillSweep, WithAttributes) {
  addAttributes();
  killEach(commitAll(), sampled(37));
  killEachOfUndo(sampled(37), sampled(3));
}

// The run that is killed first has to find the lines of an edited log.
TEST_F(KillSweep, AfterAnEditOfTheLog) {
  prepare = [] {
    ASSERT_EQ(runProgram({binaryPath("idshift"), "-c", "/trees/t/dir"}).status, 0);
    const std::string log = readLog();
    writeFile(paths::kPrivateLog, "domain:corp\n#\n" + log.substr(log.find('\n') + 1) + "#\n");
  };
  killEach(commitAll(), sampled(43), sampled(7));
}

TEST_F(KillSweep, TwoKills) {
  const bool isWhole = sampled(2) == 1;
  const std::vector<Instants> first = kills(isWhole ? 17 : kEndless, isWhole ? 1 : sampled(3));
  const std::vector<Instants> second = kills(isWhole ? 97 : kEndless, isWhole ? 5 : kEndless);
  sweep(first, [&](const CallHook& killFirst) {
    bool isKilled = false;
    sweep(second, [&](const CallHook& killSecond) {
      resetWorld();
      isKilled = runTraced(commitAll(), killFirst).signal != 0;
      const bool isKilledAgain = isKilled && runTraced(commitAll(), killSecond).signal != 0;
      expectEveryChangeRecorded();
      expectTheRestConverts();
      expectUndosRestore();
      return isKilledAgain;
    });
    return isKilled;
  });
}
