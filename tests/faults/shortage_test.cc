// Full disks, limits, files that cannot be changed, a second run, and extraordinary sizes.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "services/paths.h"
#include "services/unique_fd.h"
#include "tests/faults/fault_world.h"
#include "tests/support/loop_disk.h"
#include "tests/support/std_trees.h"

namespace {

class Shortage : public FaultTest {
 protected:
  static std::string bin() { return binaryPath("idshift"); }

  // Checks a commit of /trees/many that met `reason`: a changed entry has its whole record, and an
  // entry that could not be recorded is as it was.
  static void expectRecordedChangesOnly(const auto& result, const char* reason) {
    EXPECT_EQ(result.status, 0) << result.err.substr(0, 500);
    EXPECT_TRUE(contains(result.err, reason)) << result.err.substr(0, 500);
    const std::string log = readFile(paths::kPrivateLog);
    EXPECT_TRUE(log.ends_with('\n')) << log.substr(log.size() - 100);
    uint64_t changed = 0;
    for (const auto& [path, state] : takeSnapshot("/trees/many").entries) {
      if (state.uid != 10001 && state.uid != 50501 && state.gid != 10000)
        continue;
      ++changed;
      EXPECT_TRUE(contains(log, "/trees/many/" + path + ":")) << path;
    }
    EXPECT_GT(changed, 0U);
    EXPECT_EQ(result.out, std::to_string(changed) + " file(s) changed\n");
  }

  void resetWithMany(int count) {
    resetWorld();
    std::filesystem::remove_all("/trees/many");
    // The owners take turns: ann, bob, cid, root.
    const std::string owners[] = {"500:100", "501:101", "502:100", "0:0"};
    std::vector<std::string> rows;
    rows.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
      rows.push_back("- " + owners[i % 4] + " f" + std::to_string(i));
    plant("/trees/many", rows);
  }

  std::vector<std::string> commitMany = {bin(), "-c", "/trees/many"};
};

// Makes directories of root inside each other, and a file of ann in the deepest. Returns a
// descriptor of the file.
UniqueFd makeChain(const char* root, int levels, const std::string& name) {
  mkdir(root, 0755);
  UniqueFd here(open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < levels; ++i) {
    mkdirat(here.get(), name.c_str(), 0755);
    here = UniqueFd(openat(here.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  UniqueFd leaf(openat(here.get(), "leaf", O_CREAT | O_RDWR | O_CLOEXEC, 0644));
  EXPECT_EQ(fchown(leaf.get(), 500, 100), 0);
  return leaf;
}

uid_t ownerOf(const UniqueFd& file) {
  struct stat status = {};
  EXPECT_EQ(fstat(file.get(), &status), 0);
  return status.st_uid;
}

}  // namespace

TEST_F(Shortage, ALogThatCannotGrowChangesNothingThatItCannotRecord) {
  const struct {
    const char *command, *reason;
  } rows[] = {{"ulimit -f 64", "File too large"},
              {"mount -t tmpfs -o size=64k tmpfs /etc/orvantadc; echo domain.name=corp > "
               "/etc/orvantadc/orvantadc.conf",
               "No space left on device"}};
  for (const auto& row : rows) {
    resetWithMany(3000);
    const RunResult result = shell(row.command + ("; exec " + bin() + " -c /trees/many"));
    EXPECT_EQ(result.signal, 0);
    expectRecordedChangesOnly(result, row.reason);
  }
}

// Quotas of btrfs bind root; those of ext4 do not.
TEST_F(Shortage, AQuotaChangesNothingThatItCannotRecord) {
  resetWithMany(3000);
  LoopDisk disk;
  if (const std::string reason = disk.create("/var/log.img", "btrfs"); !reason.empty())
    GTEST_SKIP() << reason;
  disk.mountAt("/etc/orvantadc");
  joinDomain("corp");
  ASSERT_EQ(runProgram({"btrfs", "quota", "enable", "/etc/orvantadc"}).status, 0);
  ASSERT_EQ(runProgram({"btrfs", "qgroup", "limit", "96K", "/etc/orvantadc"}).status, 0);
  expectRecordedChangesOnly(runProgram(commitMany), "Disk quota exceeded");
}

TEST_F(Shortage, ALimitWithinARecordLeavesTheRecordWholeOrOut) {
  for (uint64_t limit = 8192; limit < 8192 + 60; limit += 5) {
    SCOPED_TRACE(limit);
    resetWithMany(300);
    const TracedResult result = runTraced(commitMany, [limit](const SystemCall& call) {
      const bool isBeyond = call.arguments[2] + call.arguments[3] > limit;
      return call.number == SYS_fallocate && isBeyond ? CallVerdict{CallVerdict::kFail, EDQUOT}
                                                      : CallVerdict{};
    });
    expectRecordedChangesOnly(result, "Disk quota exceeded");
  }
}

TEST_F(Shortage, WhatMayNotBeChangedIsReportedAndTheRestIsConverted) {
  LoopDisk disk;
  if (const std::string reason = disk.create("/var/disk.img"); !reason.empty())
    GTEST_SKIP() << reason;
  disk.mountAt("/trees");
  resetWorld();
  const char* const sub = "/trees/t/dir/sub";
  ASSERT_EQ(runProgram({"chattr", "+i", "/trees/t/file"}).status, 0);
  ASSERT_EQ(mount(sub, sub, nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, sub, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const RunResult result = runProgram(commitAll());
  const auto owners = takeSnapshot("/trees/t").owners();
  ASSERT_EQ(umount(sub), 0);
  ASSERT_EQ(runProgram({"chattr", "-i", "/trees/t/file"}).status, 0);
  EXPECT_EQ(result.status, 0);
  for (const std::string line :
       {"file: Operation not permitted\n", "dir/sub/deep: Read-only file system\n"}) {
    EXPECT_TRUE(contains(result.err, "Error: cannot chown: /trees/t/" + line)) << result.err;
    EXPECT_EQ(owners.at(line.substr(0, line.find(':'))), "500:100");
  }
  EXPECT_EQ(owners.at("dir/inner"), "502:10000");
  expectUndosRestore();
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

// In a directory that users can write, every entry stays pinned until it is finished.
TEST_F(Shortage, FewDescriptorsAreEnoughAndNoneIsLeftFromADirectoryThatWasRead) {
  for (const std::string limit : {"", "ulimit -n 16; ", "ulimit -n 64; "}) {
    resetWithMany(40);
    plant("/trees/many", {"d 500:100 d"});
    // Each level that still has something to walk keeps a descriptor, as far as the limit allows.
    std::string deep = "d";
    for (int level = 0; level < 160; ++level, deep += level % 2 == 0 ? "/a" : "/b")
      plant("/trees/many", {"d 0:0 " + deep + "/a", "d 0:0 " + deep + "/b"});
    ASSERT_EQ(chown("/trees/many", 500, 100), 0);
    const auto expectNoPin = [](const SystemCall& call) {
      if (call.number != SYS_openat || (call.arguments[2] & O_DIRECTORY) == 0)
        return CallVerdict{};
      const std::string descriptors = "/proc/" + std::to_string(call.pid) + "/fd";
      for (const auto& entry : std::filesystem::directory_iterator(descriptors))
        EXPECT_FALSE(std::filesystem::read_symlink(entry).native().starts_with("/trees/many/f"));
      return CallVerdict{};
    };
    const RunResult result =
        runTraced({"/bin/sh", "-c", limit + "exec " + bin() + " -c /trees/many"}, expectNoPin);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "31 file(s) changed\n");
  }
}

TEST_F(Shortage, PathsOfAnyLengthGoThereAndBack) {
  const struct {
    const char* root;
    int levels;
    std::string name;
  } rows[] = {{"/trees/long", 240, std::string(255, 'n')}, {"/trees/deep", 60000, "d"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.root);
    resetWorld();
    const UniqueFd leaf = makeChain(row.root, row.levels, row.name);
    const RunResult result = runProgram({bin(), "-c", row.root});
    EXPECT_EQ(result.status, 0) << result;
    EXPECT_EQ(ownerOf(leaf), 10001U);
    const RunResult undone = runProgram(undo());
    EXPECT_FALSE(contains(undone.err, "Error")) << undone.err.substr(0, 300);
    EXPECT_EQ(ownerOf(leaf), 500U);
  }
}
