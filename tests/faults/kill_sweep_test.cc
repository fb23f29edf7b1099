// The real program is killed before its N-th system call, for every N; whatever was reached then, a
// further commit and as many undos as there are sections lead back to the start.
#include <sys/syscall.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

namespace {

class KillSweep : public FaultTest {};

// Big enough for any run over the small tree; reached only when a run never ends by itself.
constexpr uint64_t kEndless = 100000;

}  // namespace

TEST_F(KillSweep, CommitAll) {
  const uint64_t stride = sampled(13);
  for (uint64_t index = 1; index < kEndless; index += stride) {
    SCOPED_TRACE("killed before call " + std::to_string(index));
    resetWorld();
    const TracedResult killed = runTraced(commitAll(), killBefore(index));
    if (killed.signal == 0)
      break;
    expectEveryChangeRecorded();
    expectAccountFilesWhole();
    expectTheRestConverts();
    expectUndosRestore();
    if (HasFailure())
      return;
  }
}

TEST_F(KillSweep, Undo) {
  const uint64_t stride = sampled(13);
  for (uint64_t index = 1; index < kEndless; index += stride) {
    SCOPED_TRACE("killed before call " + std::to_string(index));
    resetWorld();
    ASSERT_EQ(runProgram(commitAll()).status, 0);
    const TracedResult killed = runTraced(undo(), killBefore(index));
    expectAccountFilesWhole();
    // What is left of the section is undone by running the undo again.
    EXPECT_EQ(runProgram(undo()).status, 0);
    EXPECT_EQ(takeSnapshot("/trees/t").owners(), start.owners());
    EXPECT_EQ(readFile(paths::kPasswd), startPasswd);
    EXPECT_EQ(readFile(paths::kGroup), startGroup);
    if (killed.signal == 0 || HasFailure())
      return;
  }
}

TEST_F(KillSweep, TwoKills) {
  const uint64_t stride = sampled(8) == 1 ? 17 : 97;
  for (uint64_t first = 101; first < kEndless; first += stride) {
    for (uint64_t second = 101 + first % 7; second < kEndless; second += stride) {
      SCOPED_TRACE("killed before calls " + std::to_string(first) + " and " +
                   std::to_string(second));
      resetWorld();
      if (runTraced(commitAll(), killBefore(first)).signal == 0)
        return;
      const bool ended = runTraced(commitAll(), killBefore(second)).signal == 0;
      expectEveryChangeRecorded();
      expectTheRestConverts();
      expectUndosRestore();
      if (HasFailure())
        return;
      if (ended)
        break;
    }
  }
}
