// What users do, and disks that come and go, to make a commit or its undo go wrong. Each test is an
// attempt that must fail. Set-id and sticky bits are preserved.
#include <linux/fuse.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "tests/support/loop_disk.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/users_mount.h"
#include "tests/support/whole_run.h"

namespace {

constexpr uid_t kAnn = 10001;  // her uid in the zone
constexpr long kFchmodat2 = 452;

class Attack : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    addSetting("idshift.preserve.execution.bits = true");
  }

  // With these ids a file that is converted twice belongs to somebody else.
  static void chainIds() {
    setZone("ann:x:501:101:::\nbob:x:502:102:::\n", "users:x:101:\nbobs:x:102:\n");
  }

  static RunResult commit(std::vector<std::string> arguments = {"-c", "/trees"}) {
    usleep(12'000);  // inode and birth time do not identify a younger file
    RunResult result = idshift(std::move(arguments));
    EXPECT_TRUE(result.status == 0 && result.err.empty()) << result;
    return result;
  }

  static void asRoot(const std::string& command) {
    const RunResult result = shell("cd /trees; set -e; " + command);
    ASSERT_EQ(result.status, 0) << command << result;
  }

  static void as(uid_t uid, gid_t gid, const std::string& command) {
    asRoot("cd ann; exec setpriv --reuid=" + std::to_string(uid) +
           " --regid=" + std::to_string(gid) + " --groups=100,10000 sh -ec '" + command + "'");
  }

  static std::string stateOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    std::array<char, 16> mode = {};
    snprintf(mode.data(), mode.size(), "%04o ", status.st_mode & 07777);
    return mode.data() + ownerOf(path);
  }
};

}  // namespace

TEST_F(Attack, OneFileUnderTwoNamesIsConvertedOnce) {
  chainIds();
  plant("/trees", {"d 500:100 ann", "- 500:100 ann/f", "d 0:0 m", "d 0:0 n"});
  const TreeSnapshot before = takeSnapshot("/trees");
  for (const char* command : {"mount --bind ann m", "umount m; mount -o remount,size=9m /trees",
                              "mount --bind ann m; mount --bind m n; umount m",
                              "setpriv --reuid=501 touch -d 2037-01-01 ann/f"}) {
    asRoot(command);
    commit();
    EXPECT_EQ(stateOf("/trees/ann/f"), "0644 501:101") << command;
  }
  asRoot("mount --bind n m");
  for (int section = 0; section < 3; ++section)
    EXPECT_EQ(countOf(idshift({"-U"}).err, "\n"), 1U);
  asRoot("umount m n");
  EXPECT_EQ(takeSnapshot("/trees").owners(), before.owners());
}

// ---- Nothing that a user can put in the way delays an undo

TEST_F(Attack, AUsersSubvolumesAreNotWaitedFor) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk", "btrfs"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  plant("/trees", {"d 500:100 ann", "d 500:100 ann/d", "- 500:100 ann/d/f", "- 500:100 ann/g"});
  as(500, 100, "for i in ro gone; do btrfs subvolume create $i; touch $i/f; done");
  commit({"-C", "/trees"});
  as(kAnn, 10000,
     "mv d old; btrfs subvolume create d; rm gone/f; rmdir gone;"
     "btrfs property set ro ro true");
  const RunResult undone = idshift({"-U"});
  for (const char* path :
       {"d/f: No such", "gone: No such", "gone/f: No such", "ro: Read-only", "ro/f: Read-only"})
    EXPECT_TRUE(contains(undone.err, std::string(" /trees/ann/") + path)) << path << undone;
  EXPECT_TRUE(contains(undone.err, "have been backed out")) << undone;
  EXPECT_EQ(ownerOf("/trees/ann/g"), "500:100");
  asRoot("btrfs property set ann/ro ro false");
}

TEST_F(Attack, AUsersFileSystemIsNotWaitedFor) {
  plant("/trees", {"d 500:100 ann", "d 500:100 ann/d", "- 500:100 ann/d/f", "- 500:100 ann/z"});
  {
    UsersMount endless;
    if (!endless.mountAt("/trees/ann/d", EINTR, FUSE_READDIR))
      GTEST_SKIP() << "no FUSE here: " << strerror(errno);
    const RunResult looked = idshift({"-V", "/trees"});
    EXPECT_TRUE(contains(looked.err, "skipping /trees/ann/d: Interrupted system call")) << looked;
  }
  {
    UsersMount honest;
    ASSERT_TRUE(honest.mountAt("/trees/ann/d", 0, FUSE_READDIR));
    commit({"-C", "/trees"});
    EXPECT_EQ(ownerOf("/trees/ann/d/f"), std::to_string(kAnn) + ":10000");
  }
  asRoot("rm ann/d/f");
  const RunResult undone = idshift({"-U"});
  EXPECT_TRUE(contains(undone.err, "have been backed out")) << undone;
  EXPECT_EQ(ownerOf("/trees/ann/z"), "500:100");
}

// ---- Which entries get which owner back

TEST_F(Attack, TheTopOfAnUnmountedDiskIsWaitedFor) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  asRoot("mkdir disk");
  disk.mountAt("/trees/disk");
  asRoot("chown 500:100 disk");
  commit();
  disk.unmount();
  const RunResult undone = idshift({"-U"});
  EXPECT_TRUE(contains(undone.err, "1 change(s) from ")) << undone;
  EXPECT_EQ(ownerOf("/trees/disk"), "0:0");
  disk.mountAt("/trees/disk");
  EXPECT_TRUE(contains(idshift({"-U"}).err, "have been backed out"));
  EXPECT_EQ(ownerOf("/trees/disk"), "500:100");
}

// Two local accounts are one account of the zone. The older section of the log shows whose file it
// was.
TEST_F(Attack, AFileOfAnOlderSectionIsNobodyElses) {
  setPasswd("root:x:0:0:::\nann:x:500:100:::\nbob:x:501:100:::\n");
  setZone("ann:x:10001:10000:::\nbob:x:10001:10000:::\n", "users:x:10000:\n");
  plant("/trees", {"d 0:0 share", "- 501:100 share/bobs", "- 500:100 share/own"});
  commit();
  plant("/trees", {"- 500:100 share/anns", "- 500:100 share/saved"});
  sleep(1);  // so that the next commit begins a section
  commit();
  asRoot("cd share; mv bobs anns; mv own saved");
  const RunResult undone = idshift({"-U"});
  EXPECT_TRUE(contains(undone.err, "/trees/share/anns: Stale file handle\n")) << undone;
  EXPECT_EQ(ownerOf("/trees/share/anns"), "10001:10000");
  EXPECT_EQ(ownerOf("/trees/share/saved"), "500:100");
}

TEST_F(Attack, AFollowedLinkThatLeadsElsewhereGivesNothingAway) {
  plant("/trees", {"d 500:100 ann", "l 500:100 ann/l ../target", "- 0:100 target", "- 0:0 key"});
  commit({"-c", "-f", "/trees/ann"});
  asRoot("chown 0:10000 key");
  as(500, 100, "rm l; ln -s ../key l");
  asRoot("rm target");
  EXPECT_TRUE(contains(idshift({"-U"}).err, "/trees/ann/l: Stale file handle\n"));
  EXPECT_EQ(ownerOf("/trees/key"), "0:10000");
}

// A write by anybody but root clears the set-id bits. They must not come back on the new content.
TEST_F(Attack, WhatIsWrittenIntoASetIdProgramDoesNotGetTheBits) {
  plant("/trees", {"d 0:0 ann", "-4775 500:100 ann/f x"});
  usleep(12'000);
  for (const long moment : {long{SYS_fchownat}, kFchmodat2}) {
    for (const gid_t group : {100U, 10000U}) {  // first the commit, then the undo
      std::vector<std::string> command = {binaryPath("idshift"), "-U"};
      if (group == 100)
        command = {binaryPath("idshift"), "-c", "/trees"};
      const auto isMoment = [&](const SystemCall& call) { return call.number == moment; };
      const RunResult run = runTraced(command, atCall(isMoment, 1, [&](const SystemCall&) {
                                        as(502, group, "echo more >> f");
                                        return CallVerdict{};
                                      }));
      EXPECT_EQ(run.status, 0) << run;
      const char* state = group == 100 ? "0775 10001:10000" : "0775 500:100";
      EXPECT_EQ(stateOf("/trees/ann/f"), state);
      ASSERT_EQ(chmod("/trees/ann/f", 04775), 0);
    }
  }
}
