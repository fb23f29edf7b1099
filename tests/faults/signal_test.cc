// A signal ends a run between two records. What was done is counted, recorded and can be undone.
#include <signal.h>
#include <sys/syscall.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

using Signals = FaultTest;

TEST_F(Signals, EndARunBetweenTwoRecords) {
  const uint64_t stride = sampled(23);
  const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
  for (uint64_t index = 80; index < kEndless; index += stride) {
    const int signal = signals[index % 4];
    SCOPED_TRACE("signal " + std::to_string(signal) + " before call " + std::to_string(index));
    resetWorld();
    bool installed = false;
    const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
      installed = installed || call.number == SYS_rt_sigaction;
      if (call.index == index && installed)
        kill(call.pid, signal);
      return CallVerdict{};
    });
    if (result.calls < index)
      break;
    // Near its very end a run may be over before the signal is looked at.
    EXPECT_TRUE(result.signal == signal || result.status == 0) << result.status << result.err;
    if (exists(paths::kPrivateLog)) {
      const std::string log = readFile(paths::kPrivateLog);
      EXPECT_EQ(log.back(), '\n') << log;
      EXPECT_NE(result.out.find(" file(s) changed"), std::string::npos) << result.out;
    }
    expectEveryChangeRecorded();
    expectAccountFilesWhole();
    expectNoLeftovers();
    expectTheRestConverts();
    expectUndosRestore();
    if (HasFailure())
      return;
  }
}
