// The account phase is cut short at a call: killed, failed once or for ever, or ended by a signal.
// Further runs of --commit-all then end where the first would have, to the byte, and undos of
// everything lead back to the start.
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>

#include "services/paths.h"
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

// The calls from the sync of the trees on, behind which the accounts come.
CallFilter inAccountPhase(const CallFilter& matters) {
  return [matters, isReached = false](const SystemCall& call) mutable {
    isReached = isReached || call.number == SYS_syncfs;
    return isReached && matters(call);
  };
}

bool mayFail(const SystemCall& call) {
  constexpr std::array kCalls = {SYS_openat,    SYS_write,  SYS_rename,    SYS_fsync,
                                 SYS_fdatasync, SYS_fchmod, SYS_fallocate, SYS_link,
                                 SYS_unlink,    SYS_fchown, SYS_lseek,     SYS_clone};
  return std::find(kCalls.begin(), kCalls.end(), call.number) != kCalls.end();
}

class AccountSweep : public FaultTest, public ::testing::WithParamInterface<Case> {
 protected:
  static void prepare(const Case& row) {
    std::filesystem::remove_all("/trees/t");
    removeAll("/etc/orvantadc", "idshift.log");
    removeAll("/etc", "passwd");
    removeAll("/etc", "group");
    setPasswd(std::string("root:x:0:0::/root:/bin/sh\n") + row.passwd);
    setGroup(std::string("root:x:0:\n") + row.group);
    setZone(row.zoneUsers, row.zoneGroups);
    plant("/trees", {"d 0:0 t", "- 500:100 t/a", "- 501:101 t/b", "- 502:100 t/c", "- 600:102 t/d",
                     "d 501:100 t/e", "- 503:100 t/e/f", "- 10001:10000 t/g"});
    usleep(12'000);  // a younger file has no identity
  }

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
};

// Fails the call that it is asked about, and from then on every one of that kind.
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
  CallHook (*at)(uint64_t nth);
  uint64_t first, stride;  // of a sample
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

}  // namespace

TEST_P(AccountSweep, EndsWhereTheUndisturbedRunDoes) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime are in the way";
  const Case& row = GetParam();
  prepare(row);
  const State original;
  ASSERT_EQ(runProgram(commitAll()).status, 0);
  const State converted;
  ASSERT_NE(original.passwd + original.group, converted.passwd + converted.group);
  undoEverything();
  ASSERT_EQ(State(), original);

  const bool isLong = sampled(2) == 1;
  for (const Fault& fault : kFaults) {
    for (uint64_t nth = isLong ? 1 : fault.first;; nth += isLong ? 3 : fault.stride) {
      SCOPED_TRACE(fault.what + (" " + std::to_string(nth)));
      prepare(row);
      uint64_t asked = 0;
      const CallHook hook = fault.at(nth);
      const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
        const CallVerdict verdict = hook(call);
        asked += verdict.kind != CallVerdict::kContinue ? 1 : 0;
        return verdict;
      });
      const State reached;
      // Every other one is undone where it stands.
      if (nth % 2 == 0 || !isLong) {
        commitUntilNothingChanges();
        ASSERT_EQ(State(), converted) << "reached:\n" << reached << "first run: " << result;
      }
      undoEverything();
      ASSERT_EQ(State(), original) << "reached:\n" << reached << "first run: " << result;
      if (asked == 0 && result.signal == 0)
        break;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, AccountSweep, ::testing::ValuesIn(kCases));
