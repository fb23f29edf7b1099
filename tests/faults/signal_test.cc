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
    bool sent = false;
    int changesAfter = 0;
    const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
      installed = installed || call.number == SYS_rt_sigaction;
      changesAfter += sent && isChange(call) ? 1 : 0;
      if (call.index == index && installed)
        sent = kill(call.pid, signal) == 0;
      return CallVerdict{};
    });
    if (result.calls < index)
      break;
    // Near its very end a run may be over before the signal is looked at.
    const bool isDone = readFile(paths::kPasswd).find("cid:x:502:10000:") != std::string::npos;
    EXPECT_TRUE(result.signal == signal || (isDone && result.status == 0)) << result.err;
    EXPECT_LE(changesAfter, 1);
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
