// The real program is killed before its N-th system call, for every N, and right after each change,
// before it can finish the record in memory. Whatever was reached then, a further commit and as
// many undos as there are sections lead back to the start.
#include <sys/mount.h>

#include "tests/faults/fault_world.h"

namespace {

// Between a change and the end of its record there is no call, where the log is mapped.
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

  void killEach(const std::vector<std::string>& commit, uint64_t stride) {
    sweep(kills(stride, sampled(1)), [&](const CallHook& hook) {
      resetWorld();
      const bool isKilled = runTraced(commit, hook).signal != 0;
      expectEveryChangeRecorded();
      expectAccountFilesWhole();
      expectTheRestConverts();
      expectUndosRestore();
      return isKilled;
    });
  }

  void killEachOfUndo(uint64_t stride) {
    sweep(kills(stride, sampled(1)), [&](const CallHook& hook) {
      resetWorld();
      EXPECT_EQ(runProgram(commitAll()).status, 0);
      const bool isKilled = runTraced(undo(), hook).signal != 0;
      expectAccountFilesWhole();
      // What is left of the section is undone by running the undo again.
      EXPECT_EQ(runProgram(undo()).status, 0);
      EXPECT_TRUE(isRestored());
      return isKilled;
    });
  }
};

}  // namespace

TEST_F(KillSweep, CommitAll) {
  killEach(commitAll(), sampled(29));
}

TEST_F(KillSweep, Undo) {
  killEachOfUndo(sampled(29));
}

// On a file system that does not keep reserved room the log is written record by record. An account
// whose update was made there and not recorded has to be set back by hand.
TEST_F(KillSweep, WithAWrittenLog) {
  ASSERT_EQ(mount("ramfs", "/etc/orvantadc", "ramfs", 0, nullptr), 0);
  joinDomain("corp");
  killEach({binaryPath("idshift"), "-c", "/trees/t"}, sampled(31));
  killEachOfUndo(sampled(31));
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
