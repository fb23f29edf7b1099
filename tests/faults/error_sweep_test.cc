// The system calls of the real program fail, once or from then on, with errors that it may meet. A
// plain run takes a sample of the calls. The calls about the passwd file, its lock, its backup, its
// replacement and the snapshots are all taken.
//
// Nothing is changed without its record, no account file is torn, and nothing stays behind. Half a
// snapshot or a doubtful replacement is never used. What could not be done is reported.
#include <errno.h>
#include <string.h>
#include <sys/syscall.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"
#include "tests/support/attributes.h"

namespace {

// The first calls are those of the loader, the same in every program. The calls named here have no
// errors to return; the C library takes one for a broken kernel.
bool canFail(const SystemCall& call) {
  constexpr uint64_t kFirstOwnCall = 70;
  return call.index >= kFirstOwnCall && call.number != SYS_brk && call.number != SYS_futex &&
         call.number != SYS_exit_group && call.number != SYS_umask;
}

// The account file, in a wide sense, that a call is about: one of those named above, or an empty
// text.
std::string accountFile(const SystemCall& call) {
  for (const std::string& path : {call.descriptorPath(0), call.text(0), call.text(1)}) {
    if (path.starts_with(paths::kPasswd) || path.starts_with("/tmp/passwddb."))
      return path;
  }
  return {};
}

// Calls up to the first update. The updates of the other accounts make the same calls again.
CallFilter upToTheFirstUpdate() {
  return [isOver = false](const SystemCall& call) mutable {
    const bool isPicked = !isOver && canFail(call) && !accountFile(call).empty();
    isOver = isOver || (call.number == SYS_rename && call.text(1) == paths::kPasswd);
    return isPicked;
  };
}

// Calls about the index. A change whose record gets no room in the index must not be made.
bool isIndexCall(const SystemCall& call) {
  const std::string object = call.number == SYS_openat
                                 ? call.text(1)
                                 : call.descriptorPath(call.number == SYS_mmap ? 4 : 0);
  return canFail(call) && object == paths::kPrivateLogIndex;
}

bool isSync(const SystemCall& call) {
  return call.number == SYS_fdatasync || call.number == SYS_fsync || call.number == SYS_syncfs;
}

bool isAttributeCall(const SystemCall& call) {
  return call.number == SYS_lgetxattr || call.number == SYS_llistxattr ||
         ((call.number == SYS_getxattr || call.number == SYS_setxattr) &&
          call.text(0).starts_with("/proc/self"));
}

class ErrorSweep : public FaultTest {
 protected:
  // For every picked call and each error: runs `argv` and fails the call, alone or with all later
  // calls of the same number. `check` examines the result.
  void failEachCall(const std::vector<std::string>& argv,
                    uint64_t accountStride,
                    const std::function<void()>& prepare,
                    const std::function<void()>& check) {
    const CallHook note = [](const SystemCall& /*call*/) {
      return CallVerdict{CallVerdict::kFail};
    };
    for (const int error : {EIO, ENOSPC, EPERM, ENOMEM}) {
      for (const bool forEver : {false, true}) {
        std::vector<Instants> instants;
        if (!kSanitized)  // calls of the sanitizers' runtime would fail, too
          instants.push_back({"call", canFail, sampled(43), note});
        if (error == EIO)
          instants.push_back({"sync", isSync, sampled(1), note});
        if (error == EIO && !forEver)
          instants.push_back({"account call", upToTheFirstUpdate(), accountStride, note});
        if (error == ENOSPC)
          instants.push_back({"index call", isIndexCall, sampled(1), note});
        if (error == EPERM)
          instants.push_back({"attribute call", isAttributeCall, sampled(1), note});
        SCOPED_TRACE(std::string(strerror(error)) + (forEver ? " for ever" : " once"));
        sweep(instants, [&](const CallHook& choose) {
          prepare();
          const bool isReached = failOne(argv, choose, error, forEver);
          EXPECT_EQ(result.signal, 0);
          // Status 0 promises that everything is on the disk, so a failed sync must give another
          // status.
          EXPECT_TRUE(result.status != 0 || (failing != SYS_fdatasync && failing != SYS_syncfs));
          expectAccountFilesWhole();
          if (failing != SYS_unlink)  // a lock that cannot be removed stays
            expectNoLeftovers();
          check();
          EXPECT_FALSE(HasFailure()) << "system call " << failing << " on " << object << "\n"
                                     << result;
          return isReached;
        });
      }
    }
  }

  // Whether the failed call belongs to the loading of the accounts or to the making of the new
  // file. The store reads a first line, then the whole text; errors of the backup are ignored.
  bool isInDoubt() const {
    return object.ends_with("+") || (failing == SYS_pread64 && object == paths::kPasswd) ||
           (failing == SYS_read && (object.starts_with("/tmp") || (!object.empty() && reads <= 1)));
  }

  // Whether the failure was reported. When no write succeeds, no message can appear.
  bool isSaid() const {
    return contains(result.err, "Error: ") || contains(result.err, "Warning: ") ||
           result.status != 0 || failing == SYS_write;
  }

  Proof proof() const { return failing == SYS_fstatfs ? Proof::None : Proof::Complete; }

 private:
  // Runs `argv` and fails the call that `choose` picks. Returns whether the run came to that call.
  bool failOne(const std::vector<std::string>& argv,
               const CallHook& choose,
               int error,
               bool forEver) {
    failing = -1;
    object.clear();
    reads = 0;
    bool isReached = false;
    bool inMain = false;
    result = runTraced(argv, [&](const SystemCall& call) -> CallVerdict {
      inMain = inMain || call.number == SYS_rt_sigaction;
      const bool isHere = choose(call).kind == CallVerdict::kFail;
      isReached = isReached || isHere;
      const bool isChosen = isHere && inMain;
      reads +=
          failing < 0 && call.number == SYS_read && accountFile(call) == paths::kPasswd ? 1 : 0;
      if (isChosen) {
        failing = call.number;
        object = accountFile(call);
      }
      const bool fails = isChosen || (forEver && call.number == failing);
      return fails ? CallVerdict{CallVerdict::kFail, error} : CallVerdict{};
    });
    return isReached;
  }

  TracedResult result;
  long failing = -1;
  std::string object;  // the account file that the failed call was about
  int reads = 0;       // of the passwd file, up to the failed call
};

}  // namespace

TEST_F(ErrorSweep, CommitAll) {
  failEachCall(
      commitAll(), sampled(1), [this] { resetWorld(); },
      [this] {
        expectEveryChangeRecorded();
        const bool converted = contains(readFile(paths::kPasswd), ":50501:50101:") &&
                               ownerOf("/trees/t/dir/sub/deep") == "10001:10000";
        EXPECT_TRUE((converted && !isInDoubt()) || isSaid());
        // An undo restores what was changed; what was reported and passed over is as it was.
        expectUndosRestore(proof());
      });
}

TEST_F(ErrorSweep, Undo) {
  const auto prepare = [this] {
    resetWorld();
    EXPECT_EQ(runProgram(commitAll()).status, 0);
  };
  // An undo that did not restore every owner must have reported a failure.
  failEachCall(undo(), sampled(7), prepare, [this] {
    EXPECT_TRUE(takeSnapshot("/trees/t").owners() == start.owners() || isSaid());
  });
}

TEST_F(ErrorSweep, WithAttributes) {
  keepAttributes();
  const auto prepare = [this] {
    resetWorld();
    plantAttributes();
  };
  failEachCall({binaryPath("idshift"), "-c", "/trees/t"}, sampled(5), prepare, [this] {
    const TreeSnapshot now = takeSnapshot("/trees/t");
    const bool isKept = now.at("file").capability == start.at("file").capability &&
                        now.at("suid").capability == start.at("suid").capability;
    const bool isConverted = aclOf("/trees/t/foreign") == "u:10001:r u:50501:rw g:10000:r" &&
                             aclOf("/trees/t/dir", kDefaultAcl) == "u:50501:r";
    EXPECT_TRUE((isConverted && isKept) || isSaid());
    expectUndosRestore(proof());
    for (const auto& [path, state] : takeSnapshot("/trees/t").entries)
      EXPECT_EQ(state.acls, start.at(path).acls) << path;
  });
}
