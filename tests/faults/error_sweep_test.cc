// Every system call of the real program fails, once or from then on, with an errno that it may well
// meet. Nothing is changed without its record, no account file is torn, nothing stays behind, and
// what could not be done is said.
#include <errno.h>
#include <string.h>
#include <sys/syscall.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

namespace {

// Of the first calls all are the loader's, the same in every program. The C library takes an error
// of these three for a broken kernel, and they have none to give.
bool canFail(const SystemCall& call) {
  constexpr uint64_t kFirstOwnCall = 70;
  return call.index >= kFirstOwnCall && call.number != SYS_brk && call.number != SYS_futex &&
         call.number != SYS_exit_group;
}

bool isSync(const SystemCall& call) {
  return call.number == SYS_fdatasync || call.number == SYS_fsync || call.number == SYS_syncfs;
}

class ErrorSweep : public FaultTest {
 protected:
  // Runs `argv` for every call in turn, which fails alone or with all like it from then on. `check`
  // looks at what has become of it.
  void failEachCall(const std::vector<std::string>& argv,
                    int error,
                    bool forEver,
                    const std::function<void()>& prepare,
                    const std::function<void()>& check) {
    const CallHook note = [](const SystemCall& /*call*/) {
      return CallVerdict{CallVerdict::kFail};
    };
    std::vector<Instants> instants = {{"call", canFail, sampled(43), note}};
    if (error == EIO)
      instants.push_back({"sync", isSync, sampled(1), note});
    SCOPED_TRACE(std::string(strerror(error)) + (forEver ? " for ever" : " once"));
    sweep(instants, [&](const CallHook& choose) {
      failing = -1;
      bool isReached = false;
      bool inMain = false;
      std::string object;
      prepare();
      result = runTraced(argv, [&](const SystemCall& call) -> CallVerdict {
        inMain = inMain || call.number == SYS_rt_sigaction;
        const bool isHere = choose(call).kind == CallVerdict::kFail;
        isReached = isReached || isHere;
        const bool isChosen = isHere && inMain;
        if (isChosen) {
          failing = call.number;
          object = call.descriptorPath(0);
        }
        // Each try to have that lock takes 15 s when it cannot be opened; Shortage tries that once.
        const bool isSlow = call.number == SYS_openat && call.text(1) == "/etc/.pwd.lock";
        const bool fails = (isChosen || (forEver && call.number == failing)) && !isSlow;
        return fails ? CallVerdict{CallVerdict::kFail, error} : CallVerdict{};
      });
      EXPECT_EQ(result.signal, 0);
      // A success means that all is on the disk.
      EXPECT_TRUE(result.status != 0 || (failing != SYS_fdatasync && failing != SYS_syncfs));
      expectAccountFilesWhole();
      expectNoLeftovers();
      check();
      EXPECT_FALSE(HasFailure()) << "system call " << failing << " on " << object << ", status "
                                 << result.status << "\n"
                                 << result.err;
      return isReached;
    });
  }

  // A lock whose removal fails can't but stay.
  void expectNoLeftovers() const {
    if (failing != SYS_unlink)
      FaultTest::expectNoLeftovers();
  }

  TracedResult result;
  long failing = -1;
};

}  // namespace

TEST_F(ErrorSweep, CommitAll) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime would fail as well";
  for (const int error : {EIO, ENOSPC, EPERM, ENOMEM}) {
    for (const bool forEver : {false, true}) {
      failEachCall(
          commitAll(), error, forEver, [this] { resetWorld(); },
          [this] {
            expectEveryChangeRecorded();
            const bool converted =
                readFile(paths::kPasswd).find(":50501:50101:") != std::string::npos &&
                takeSnapshot("/trees/t").owners().at("dir/sub/deep") == "10001:10000";
            // Where no write goes through, no word does.
            EXPECT_TRUE(converted || !result.err.empty() || result.status != 0 ||
                        failing == SYS_write)
                << result.out;
            // What was reported and passed over stays as it is; what was changed goes back.
            expectUndosRestore();
          });
    }
  }
}

TEST_F(ErrorSweep, Undo) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime would fail as well";
  const auto prepare = [this] {
    resetWorld();
    EXPECT_EQ(runProgram(commitAll()).status, 0);
  };
  for (const int error : {EIO, ENOSPC, EPERM, ENOMEM}) {
    for (const bool forEver : {false, true}) {
      failEachCall(undo(), error, forEver, prepare, [this, forEver] {
        const bool restored = takeSnapshot("/trees/t").owners() == start.owners() &&
                              readFile(paths::kPasswd) == startPasswd &&
                              readFile(paths::kGroup) == startGroup;
        // A failed account update of an undo is given up without a word; the log still shows it.
        EXPECT_TRUE(restored || !result.err.empty() || result.status != 0 ||
                    (forEver && failing == SYS_write))
            << result.out;
      });
    }
  }
}
