// A signal ends a commit or an undo between two records. What was done is counted and recorded.
// Further runs do the rest, and undo everything.
#include <signal.h>
#include <sys/syscall.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

namespace {

class Signals : public FaultTest {
 protected:
  void signalAtEachCall(bool whileUndoing) {
    const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    int sent = 0;
    const CallHook send = [&](const SystemCall& call) {
      sent = signals[call.index % 4];
      EXPECT_EQ(kill(call.pid, sent), 0);
      return CallVerdict{};
    };
    sweep({{"signal before call", isAnyCall, sampled(23), send}}, [&](const CallHook& choose) {
      resetWorld();
      EXPECT_TRUE(!whileUndoing || runProgram(commitAll()).status == 0);
      sent = 0;
      int changesAfter = 0;
      bool isHandled = false;  // a signal kills until the handlers are installed
      const TracedResult result =
          runTraced(whileUndoing ? undo() : commitAll(), [&](const SystemCall& call) {
            changesAfter += sent != 0 && isChange(call) ? 1 : 0;
            isHandled =
                isHandled || (call.number == SYS_rt_sigaction && call.arguments[0] == SIGXFSZ);
            return isHandled ? choose(call) : CallVerdict{};
          });
      // Near its end a run may finish before it looks at the signal.
      const bool isConverted = contains(readFile(paths::kPasswd), "cid:x:502:10000:");
      EXPECT_TRUE(result.signal == sent || (isConverted != whileUndoing && result.status == 0))
          << result;
      EXPECT_LE(changesAfter, 1);
      const std::string log = readLog();
      EXPECT_TRUE(log.empty() || log.back() == '\n') << log;
      EXPECT_TRUE(log.empty() || contains(result.out, " file(s) changed")) << result;
      expectAccountFilesWhole();
      expectNoLeftovers();
      if (!whileUndoing) {
        expectEveryChangeRecorded();
        expectTheRestConverts();
      }
      expectUndosRestore();
      return sent != 0;
    });
  }
};

}  // namespace

TEST_F(Signals, EndACommitBetweenTwoRecords) {
  signalAtEachCall(false);
}

TEST_F(Signals, EndAnUndoBetweenTwoLines) {
  signalAtEachCall(true);
}
