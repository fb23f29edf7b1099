// Disks that fill up, limits, read-only and immutable files, and sizes beyond the ordinary.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "services/paths.h"
#include "tests/faults/fault_world.h"
#include "tests/support/std_trees.h"

namespace {

class Shortage : public FaultTest {
 protected:
  static std::string bin() { return binaryPath("idshift"); }

  // Every changed entry of /trees/many has its line.
  static uint64_t changedWithoutRecord() {
    const std::string log = readFile(paths::kPrivateLog);
    uint64_t missing = 0;
    for (const auto& [path, state] : takeSnapshot("/trees/many").entries) {
      const bool changed = state.uid == 10001 || state.uid == 50501 || state.gid == 10000;
      if (changed && log.find("/trees/many/" + path + ":") == std::string::npos)
        ++missing;
    }
    return missing;
  }
};

}  // namespace

TEST_F(Shortage, AFullLogChangesNothingThatItCannotRecord) {
  resetWorld();
  manyFiles("/trees/many", 3000);
  const std::string settings = readFile(paths::kSettings);
  ASSERT_EQ(mount("tmpfs", "/etc/orvantadc", "tmpfs", 0, "size=64k"), 0);
  writeFile(paths::kSettings, settings);
  const RunResult result = runProgram({bin(), "-c", "/trees/many"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("No space left on device"), std::string::npos);
  EXPECT_EQ(changedWithoutRecord(), 0U);
  umount("/etc/orvantadc");
}

TEST_F(Shortage, AFileSizeLimitIsAFailedWriteAndNoDeath) {
  resetWorld();
  manyFiles("/trees/many", 3000);
  const RunResult result =
      runProgram({"/bin/sh", "-c", "ulimit -f 64; exec " + bin() + " -c /trees/many"});
  EXPECT_EQ(result.signal, 0);
  EXPECT_NE(result.err.find("File too large"), std::string::npos) << result.err.substr(0, 500);
  EXPECT_EQ(changedWithoutRecord(), 0U);
}

TEST_F(Shortage, ReadOnlyEntriesAreReportedAndTheRestIsConverted) {
  resetWorld();
  ASSERT_EQ(mount("/trees/t/dir/sub", "/trees/t/dir/sub", nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, "/trees/t/dir/sub", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
            0);
  const RunResult result = runProgram({bin(), "-c", "/trees/t"});
  umount("/trees/t/dir/sub");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("Error: cannot chown: /trees/t/dir/sub/deep: Read-only file system"),
            std::string::npos)
      << result.err;
  const auto owners = takeSnapshot("/trees/t").owners();
  EXPECT_EQ(owners.at("dir/sub/deep"), "500:100");
  EXPECT_EQ(owners.at("file"), "10001:10000");
}

TEST_F(Shortage, ASecondRunIsRefusedWhileTheFirstGoesOn) {
  resetWorld();
  RunResult second;
  int asked = 0;
  const TracedResult first = runTraced(commitAll(), [&](const SystemCall& call) {
    if (call.number == SYS_fchownat || call.number == SYS_lchown) {
      if (asked++ == 0)
        second = runProgram(commitAll());
    }
    return CallVerdict{};
  });
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(second.status, 161) << second;
  EXPECT_GT(asked, 0);
}

TEST_F(Shortage, AMillionNamesNeedNoMoreMemoryThanAThousand) {
  const int many = sampled(8) == 1 ? 1000000 : 100000;
  resetWorld();
  ASSERT_EQ(mkdir("/trees/names", 0755), 0);
  const auto peakKib = [&](int count) {
    const std::string root = "/trees/names/" + std::to_string(count);
    EXPECT_EQ(mkdir(root.c_str(), 0755), 0);
    for (int i = 0; i < count; ++i)
      EXPECT_EQ(mknod((root + "/" + std::to_string(i)).c_str(), S_IFREG | 0644, 0), 0);
    const pid_t pid = startProgram({bin(), "-c", root});
    int status = 0;
    rusage usage = {};
    wait4(pid, &status, 0, &usage);
    EXPECT_EQ(status, 0);
    return usage.ru_maxrss;
  };
  const long few = peakKib(1000);
  EXPECT_LT(peakKib(many), few + 1024);
}
