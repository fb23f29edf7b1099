// Every system call of the real program fails, once or from then on, with an errno that it may well
// meet. Nothing is changed without its record, no account file is torn, nothing stays behind, and
// what could not be done is said.
#include <errno.h>
#include <string.h>
#include <sys/syscall.h>

#include <set>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

namespace {

// The C library takes an error of these for a broken kernel, and they have none to give.
bool canFail(long number) {
  return number != SYS_brk && number != SYS_futex && number != SYS_exit_group;
}

class ErrorSweep : public FaultTest {
 protected:
  // True when the run ended by itself before it reached call number `index`.
  bool failCall(const std::vector<std::string>& argv, uint64_t index, int error, bool forEver) {
    failing = -1;
    bool inMain = false;  // what comes before is the loader's, the same in every program
    result = runTraced(argv, [&](const SystemCall& call) -> CallVerdict {
      inMain = inMain || call.number == SYS_rt_sigaction;
      if (inMain && call.index == index && canFail(call.number))
        failing = call.number;
      // Each try to have that lock takes 15 s when it cannot be opened; Shortage tries that once.
      if (call.number == SYS_openat && call.text(1) == "/etc/.pwd.lock")
        return {};
      const bool fail = call.index == index || (forEver && call.index > index);
      return fail && call.number == failing ? CallVerdict{CallVerdict::kFail, error}
                                            : CallVerdict{};
    });
    return result.calls < index;
  }

  // A lock whose removal fails can't but stay.
  void expectNoLeftovers() const {
    if (failing != SYS_unlink)
      FaultTest::expectNoLeftovers();
  }

  TracedResult result;
  long failing = -1;
};

constexpr uint64_t kFirstCall = 70;

}  // namespace

TEST_F(ErrorSweep, CommitAll) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime would fail as well";
  const uint64_t stride = sampled(37);
  for (const int error : {EIO, ENOSPC, EPERM, ENOMEM}) {
    for (const bool forEver : {false, true}) {
      for (uint64_t index = kFirstCall + (forEver ? 5 : 0); index < kEndless; index += stride) {
        SCOPED_TRACE("call " + std::to_string(index) + (forEver ? " and all like it" : "") +
                     " fails with " + strerror(error));
        resetWorld();
        if (failCall(commitAll(), index, error, forEver))
          break;
        EXPECT_EQ(result.signal, 0);
        expectEveryChangeRecorded();
        expectAccountFilesWhole();
        const bool converted =
            readFile(paths::kPasswd).find(":50501:50101:") != std::string::npos &&
            takeSnapshot("/trees/t").owners().at("dir/sub/deep") == "10001:10000";
        // Where no write goes through, no word does.
        EXPECT_TRUE(converted || !result.err.empty() || result.status != 0 || failing == SYS_write)
            << result.out;
        expectNoLeftovers();
        // What was reported and passed over stays as it is; what was changed goes back.
        expectUndosRestore();
        if (HasFailure()) {
          ADD_FAILURE() << "system call " << failing << ", status " << result.status << "\n"
                        << result.err;
          return;
        }
      }
    }
  }
}

TEST_F(ErrorSweep, Undo) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime would fail as well";
  const uint64_t stride = sampled(37);
  for (const int error : {EIO, ENOSPC, EPERM, ENOMEM}) {
    for (uint64_t index = kFirstCall; index < kEndless; index += stride) {
      SCOPED_TRACE("call " + std::to_string(index) + " fails with " + strerror(error));
      resetWorld();
      ASSERT_EQ(runProgram(commitAll()).status, 0);
      if (failCall(undo(), index, error, false))
        break;
      EXPECT_EQ(result.signal, 0);
      expectAccountFilesWhole();
      expectNoLeftovers();
      const bool restored = takeSnapshot("/trees/t").owners() == start.owners() &&
                            readFile(paths::kPasswd) == startPasswd &&
                            readFile(paths::kGroup) == startGroup;
      // A failed account update of an undo is given up without a word; the log still shows it.
      EXPECT_TRUE(restored || !result.err.empty() || result.status != 0) << result.out;
      if (HasFailure()) {
        ADD_FAILURE() << "system call " << failing << ", status " << result.status << "\n"
                      << result.err;
        return;
      }
    }
  }
}
