// The account phase is interrupted at a call: the run is killed, a call fails once or from then on,
// a signal ends the run, or the power fails.
//
// Further runs of --commit-all then end in the same state as an undisturbed run, to the byte. Undos
// of everything lead back to the start.
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>

#include "services/paths.h"
#include "tests/faults/cut_disks.h"
#include "tests/faults/fault_world.h"
#include "tests/support/std_trees.h"

namespace {

struct Case {
  const char* what;
  const char* passwd;
  const char* group;
  const char* zoneUsers;
  const char* zoneGroups;
};

constexpr Case kCases[] = {
    {"plain ids", "ann:x:500:100::/:\nbob:x:600:100::/:\n", "users:x:100:\n",
     "ann:x:10001:10000:::\nbob:x:10002:10000:::\n", "users:x:10000:\n"},
    {"chained users", "ann:x:500:100::/:\nbob:x:501:100::/:\ncid:x:502:100::/:\n", "users:x:100:\n",
     "ann:x:501:100:::\nbob:x:502:100:::\ncid:x:503:100:::\n", "users:x:100:\n"},
    {"chained groups", "ann:x:500:100::/:\nbob:x:501:101::/:\n",
     "users:x:100:\nbobs:x:101:\nmore:x:102:\n", "ann:x:500:101:::\n",
     "users:x:101:\nbobs:x:102:\nmore:x:103:\n"},
    {"a local stranger has the zone's id", "ann:x:500:100::/:\nbob:x:501:101::/:\n",
     "users:x:100:\nbobs:x:101:\n", "ann:x:501:101:::\n", "users:x:101:\n"},
    {"users without a zone account in a moved group",
     "ann:x:500:100::/:\ncid:x:502:100::/:\ndan:x:503:100::/:\n", "users:x:100:\n",
     "ann:x:10001:10000:::\n", "users:x:10000:\n"},
    {"swapped ids", "ann:x:500:100::/:\nbob:x:501:101::/:\n", "users:x:100:\nbobs:x:101:\n",
     "ann:x:501:101:::\nbob:x:500:100:::\n", "users:x:101:\nbobs:x:100:\n"},
};

void PrintTo(const Case& row, std::ostream* stream) {
  *stream << row.what;
}

// Everything that a conversion may change.
struct State {
  std::string passwd = readFile(paths::kPasswd);
  std::string group = readFile(paths::kGroup);
  std::map<std::string, std::string> owners = takeSnapshot("/trees/t").owners();

  bool operator==(const State&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const State& state) {
  stream << state.passwd << state.group;
  for (const auto& [path, owner] : state.owners)
    stream << path << " " << owner << "\n";
  return stream << readLog();
}

// Of the calls that `matters` picks, those from the sync of the trees on, or else from the first
// lock of an account file.
CallFilter inAccountPhase(const CallFilter& matters) {
  return [matters, isReached = false](const SystemCall& call) mutable {
    isReached = isReached || call.number == SYS_syncfs || call.number == SYS_link;
    return isReached && matters(call);
  };
}

bool mayFail(const SystemCall& call) {
  constexpr std::array kCalls = {SYS_openat,    SYS_write,  SYS_rename,    SYS_fsync,
                                 SYS_fdatasync, SYS_fchmod, SYS_fallocate, SYS_link,
                                 SYS_unlink,    SYS_fchown, SYS_lseek,     SYS_clone};
  return std::find(kCalls.begin(), kCalls.end(), call.number) != kCalls.end();
}

// Fails the nth call that `matters` picks, and from then on every call of the same number.
CallHook failingFrom(const CallFilter& matters, uint64_t nth) {
  return [matters, nth, seen = uint64_t{0}, kind = long{-1}](const SystemCall& call) mutable {
    if (kind < 0 && matters(call) && ++seen == nth)
      kind = call.number;
    return kind >= 0 && call.number == kind && mayFail(call)
               ? CallVerdict{CallVerdict::kFail, ENOSPC}
               : CallVerdict{};
  };
}

struct Fault {
  const char* what;
  std::function<CallHook(uint64_t nth)> at;
  uint64_t first, stride;  // of the calls in a sample
};

const Fault kFaults[] = {
    {"killed before call",
     [](uint64_t nth) {
       return atCall(inAccountPhase(isAnyCall), nth,
                     [](const SystemCall&) { return CallVerdict{CallVerdict::kKill}; });
     },
     31, 67},
    {"failed once at",
     [](uint64_t nth) {
       return atCall(inAccountPhase(mayFail), nth, [](const SystemCall&) {
         return CallVerdict{CallVerdict::kFail, EIO};
       });
     },
     11, 29},
    {"failed for ever from", [](uint64_t nth) { return failingFrom(inAccountPhase(mayFail), nth); },
     5, 31},
    {"SIGTERM at call",
     [](uint64_t nth) {
       return atCall(inAccountPhase(isAnyCall), nth, [](const SystemCall& call) {
         kill(call.pid, SIGTERM);
         return CallVerdict{};
       });
     },
     3, 101},
};

class AccountSweep : public FaultTest, public ::testing::WithParamInterface<Case> {
 protected:
  virtual void prepare() {
    const Case& row = GetParam();
    countCase();
    std::filesystem::remove_all("/trees/t");
    removeAll("/etc/orvantadc", "idshift.log");
    removeAll("/etc", "passwd");
    removeAll("/etc", "group");
    setPasswd(std::string("root:x:0:0::/root:/bin/sh\n") + row.passwd);
    setGroup(std::string("root:x:0:\n") + row.group);
    setZone(row.zoneUsers, row.zoneGroups);
    plant("/trees", {"d 0:0 t", "- 500:100 t/a", "- 501:101 t/b", "- 502:100 t/c", "- 600:102 t/d",
                     "d 501:100 t/e", "- 503:100 t/e/f", "- 10001:10000 t/g"});
    usleep(12'000);  // inode and birth time do not identify a younger file
  }
  virtual void startAgain() {}  // after the fault

  static void commitUntilNothingChanges() {
    for (int runs = 0; runs < 5; ++runs) {
      const State before;
      EXPECT_EQ(runProgram(commitAll()).status, 0);
      if (before == State())
        return;
    }
    ADD_FAILURE() << "it never ends";
  }

  static void undoEverything() {
    for (int undos = 0; undos < 10 && contains(readLog(), "\n!"); ++undos)
      EXPECT_EQ(runProgram(undo()).status, 0);
  }

  // Runs the conversion undisturbed, and undoes it.
  void establish() {
    prepare();
    original.emplace();
    ASSERT_EQ(runProgram(commitAll()).status, 0);
    converted.emplace();
    ASSERT_NE(original->passwd + original->group, converted->passwd + converted->group);
    undoEverything();
    ASSERT_EQ(State(), *original);
  }

  // Runs the conversion with the fault. Then the machine must get back to the start; with `goesOn`
  // it must first get to the end of the undisturbed run. False when the run ended before the fault.
  bool tryAt(const CallHook& hook, bool goesOn) {
    prepare();
    bool isDisturbed = false;
    const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
      const CallVerdict verdict = hook(call);
      isDisturbed = isDisturbed || verdict.kind != CallVerdict::kContinue;
      return verdict;
    });
    startAgain();
    const State reached;
    if (goesOn) {
      commitUntilNothingChanges();
      EXPECT_EQ(State(), *converted) << "reached:\n" << reached << "first run: " << result;
    }
    undoEverything();
    EXPECT_EQ(State(), *original) << "reached:\n" << reached << "first run: " << result;
    return isDisturbed || result.signal != 0;
  }

  void sweepFault(const Fault& fault) {
    const bool isLong = sampled(2) == 1;
    for (uint64_t nth = isLong ? 1 : fault.first;; nth += isLong ? 1 : fault.stride) {
      SCOPED_TRACE(fault.what + (" " + std::to_string(nth)));
      const bool isReached = tryAt(fault.at(nth), true);
      if (isLong && !HasFailure())
        tryAt(fault.at(nth), false);
      if (!isReached || HasFailure())
        break;
    }
  }

  std::optional<State> original;
  std::optional<State> converted;
};

// The same sweep on a machine with two disks, whose power fails at the call.
class AccountPowerCut : public AccountSweep {
 protected:
  void arrange() override {
    AccountSweep::arrange();
    if (const std::string reason = disks.create(); !reason.empty())
      GTEST_SKIP() << reason;
  }
  void prepare() override {
    AccountSweep::prepare();
    disks.flush();
  }
  void startAgain() override { disks.startAgain(); }

  CutDisks disks;
};

}  // namespace

TEST_P(AccountSweep, EndsWhereTheUndisturbedRunDoes) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime are in the way";
  ASSERT_NO_FATAL_FAILURE(establish());
  for (const Fault& fault : kFaults)
    sweepFault(fault);
}

TEST_P(AccountPowerCut, EndsWhereTheUndisturbedRunDoes) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime are in the way";
  ASSERT_NO_FATAL_FAILURE(establish());
  for (const WrittenBack writtenBack : {kNothing, kTree, kLog}) {
    sweepFault({"power cut at call",
                [this, writtenBack](uint64_t nth) {
                  return atCall(inAccountPhase(isAnyCall), nth, [=, this](const SystemCall&) {
                    disks.cutPower(writtenBack);
                    return CallVerdict{CallVerdict::kKill};
                  });
                },
                1, 89});
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, AccountSweep, ::testing::ValuesIn(kCases));
INSTANTIATE_TEST_SUITE_P(Cases, AccountPowerCut, ::testing::ValuesIn(kCases));
