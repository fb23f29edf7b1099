// Every system call on the snapshots of the account files, and on the passwd file, its lock, its
// backup and its replacement fails, one at a time. The file is then the old one or the new one,
// whole and with its owner and mode, nothing stays beside it, and neither half a snapshot nor a
// replacement that is in doubt is taken.
#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "services/paths.h"
#include "tests/faults/fault_world.h"

namespace {

using AccountSweep = FaultTest;

// The account file that a call is about, or nothing.
std::string accountPath(const SystemCall& call) {
  for (const std::string& path : {call.descriptorPath(0), call.text(0), call.text(1)}) {
    if (path.starts_with(paths::kPasswd) || path == "/etc/.pwd.lock" ||
        path.starts_with("/tmp/passwddb."))
      return path;
  }
  return {};
}

}  // namespace

TEST_F(AccountSweep, EachCallOnThePasswdFileFails) {
  bool struck = true;
  int nth = 1;
  for (; struck; ++nth) {
    resetWorld();
    ASSERT_EQ(chown(paths::kPasswd, 0, 42), 0);
    struck = false;
    bool doubtful = false;  // whether the update may not be made after this
    std::string what;
    int calls = 0;
    int reads = 0;
    bool first = true;  // the other accounts' updates are the same again
    const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) -> CallVerdict {
      const std::string path = first ? accountPath(call) : std::string();
      // What can't be removed stays, necessarily. umask is about no file: a path in its unused
      // registers is left from the call before.
      if (path.empty() || call.number == SYS_unlink || call.number == SYS_umask)
        return {};
      first = call.number != SYS_rename;
      // The store reads the lines and the end; what the backup then reads may fail.
      const bool loading = call.number == SYS_read && (path.starts_with("/tmp") || ++reads <= 2);
      if (++calls != nth)
        return {};
      struck = true;
      doubtful = loading || path.ends_with("+");
      what = "call " + std::to_string(call.number) + " on " + path;
      return {CallVerdict::kFail, EIO};
    });
    SCOPED_TRACE(what);
    expectAccountFilesWhole();
    EXPECT_EQ(takeSnapshot("/etc").at("passwd").gid, 42U);
    for (const auto& entry : std::filesystem::directory_iterator("/etc")) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(!name.starts_with("passwd") || name == "passwd" || name == "passwd-") << name;
    }
    EXPECT_TRUE(!doubtful || !result.err.empty());
    const bool converted = contains(readFile(paths::kPasswd), ":10001:10000:");
    EXPECT_TRUE(converted || (struck && !result.err.empty()));
  }
  EXPECT_GT(nth, 20);
}
