// What an undo gives back, what it leaves and what it waits for, after the owners of the files have
// changed them. Set-id and sticky bits are preserved, so a file that is given to the wrong user
// would let others act as that user.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "services/paths.h"
#include "tests/support/loop_disk.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/users_mount.h"
#include "tests/support/whole_run.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kAnn = 10001;  // her uid in the zone
constexpr const char* kAnnsDirectory = "/trees/ann";

const std::string kMissing = "No such file or directory";
const std::string kStale = "Stale file handle";

class UndoRules : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    addSetting("idshift.preserve.execution.bits = true");
  }

  static void commit(std::vector<std::string> arguments = {"-c", "/trees"}) {
    usleep(12'000);  // inode and birth time do not identify a younger file
    const RunResult result = idshift(std::move(arguments));
    ASSERT_TRUE(result.status == 0 && result.err.empty()) << result;
  }

  // Runs `command` in the directory of ann, with the ids that she has after the commit.
  static void asAnn(const std::string& command) {
    const RunResult result = shell("cd " + std::string(kAnnsDirectory) +
                                   " && exec setpriv --reuid=" + std::to_string(kAnn) +
                                   " --regid=10000 --groups=10000,10001 sh -ec '" + command + "'");
    ASSERT_EQ(result.status, 0) << command << result;
  }

  static std::string stateOf(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0)
      return "gone";
    std::array<char, 64> text = {};
    snprintf(text.data(), text.size(), "%04o %u:%u", status.st_mode & 07777, status.st_uid,
             status.st_gid);
    return text.data();
  }

  static ino_t inodeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_ino;
  }

  static std::string complaint(const std::string& path, const std::string& reason) {
    return "Error: cannot chown: " + path + ": " + reason + "\n";
  }

  static std::string accounts() { return readFile("/etc/passwd") + readFile("/etc/group"); }

  static bool isUsedUp() {
    const std::string log = readFile(paths::kPrivateLog);
    return countOf(log, "\n") == countOf(log, "\n#") + 1;  // all lines but the header are marked
  }

  // Expects that the undo reports how many lines wait, and keeps its date and the account lines.
  static void waits(const RunResult& undone, uint64_t lines) {
    EXPECT_EQ(undone.status, 0) << undone;
    EXPECT_TRUE(contains(undone.err, std::to_string(lines) + " change(s) from ") &&
                contains(undone.err, " could not be backed out yet: ") &&
                !contains(undone.err, "have been backed out"))
        << undone;
    const std::string log = readFile(paths::kPrivateLog);
    EXPECT_TRUE(contains(log, "\n!") && contains(log, "\n@users") && contains(log, "\n=ann"))
        << log;
  }

  static void completes(const RunResult& undone) {
    EXPECT_EQ(undone.status, 0) << undone;
    EXPECT_TRUE(countOf(undone.err, "\n") == 1 && contains(undone.err, "have been backed out"))
        << undone;
    EXPECT_TRUE(isUsedUp()) << readFile(paths::kPrivateLog);
  }
};

}  // namespace

TEST_F(UndoRules, WhatOwnersDidInBetweenDecides) {
  struct Row {
    std::string planted;
    std::string asAnn;
    std::string asRoot;
    std::string path;
    std::string state;  // of the entry after the undo
    std::string reason = {};
  };
  const std::vector<Row> rows = {
      // The recorded file stands at the path.
      {"-644 500:100 plain", "", "", "plain", "0644 500:100"},
      {"-644 500:100 moved/f", "mv moved away; ln -s away moved", "", "moved/f", "0644 500:100"},
      {"-755 500:100 suid", "chmod 4755 suid", "", "suid", "4755 500:100"},
      {"-755 500:100 sgid", "chgrp 10001 sgid; chmod 6755 sgid", "", "sgid", "0755 500:100"},
      {"-644 500:100 back", "", "chown 500:100 back", "back", "0644 500:100"},
      {"-4755 500:100 taken", "", "chown 700:10000 taken; chmod 4755 taken", "taken",
       "4755 700:10000", kStale},
      // Another file stands at the path.
      {"-644 500:100 saved", "cp saved new; chmod 4755 new; mv new saved", "", "saved",
       "0755 500:100"},
      {"-644 500:100 twice", "cp twice other; mv other twice; ln twice more", "", "twice",
       "0644 10001:10000", kStale},
      {"-644 500:100 dir/f", "mv dir olddir; mkdir to; touch to/f; ln -s to dir", "", "dir/f",
       "0644 10001:10000", kStale},
      {"-644 0:100 roots", "rm -f roots; cp suid roots; chmod 4755 roots", "", "roots",
       "4755 10001:10000", kStale},
      {"-644 500:100 removed", "rm removed", "", "removed", "gone", kMissing},
      {"- 500:100 parent/f", "mv parent/f .; rmdir parent", "", "parent/f", "gone", kMissing},
      // Two records whose files have exchanged names. The second record has its own old group.
      {"-644 500:100 one", "mv one tmp; mv two one; mv tmp two", "", "one", "0644 500:55"},
      {"-644 500:55 two", "", "", "two", "0644 500:100"},
      {"-644 500:100 zlast", "", "", "zlast", "0644 500:100"},
  };
  std::vector<std::string> planted = {"d 500:100 moved", "d 500:100 dir", "d 500:100 parent"};
  for (const Row& row : rows)
    planted.push_back(row.planted);
  plant(kAnnsDirectory, planted);
  ASSERT_EQ(chown(kAnnsDirectory, 500, 100), 0);
  commit();
  std::string complaints;
  for (const Row& row : rows) {
    if (!row.asAnn.empty())
      asAnn(row.asAnn);
    ASSERT_EQ(shell("cd /trees/ann; " + row.asRoot).status, 0);
  }
  const RunResult undone = idshift({"-U"});
  EXPECT_EQ(undone.status, 0) << undone;
  size_t reported = 0;
  for (const Row& row : rows) {
    const std::string path = std::string(kAnnsDirectory) + "/" + row.path;
    EXPECT_EQ(stateOf(path), row.state) << path;
    const bool isReported = contains(undone.err, " " + path + ": ");
    EXPECT_EQ(isReported, !row.reason.empty()) << path << undone;
    EXPECT_TRUE(!isReported || contains(undone.err, " " + path + ": " + row.reason)) << undone;
    reported += isReported ? 1 : 0;
  }
  // Two directories are gone with their entries.
  EXPECT_TRUE(contains(undone.err, " /trees/ann/parent: " + kMissing)) << undone;
  EXPECT_EQ(countOf(undone.err, "\n"), reported + 2) << undone;
  EXPECT_TRUE(isUsedUp()) << readFile(paths::kPrivateLog);
}

// Ann 500 gets 501 of bob, bob 501 gets 502 of cid. So an id alone does not show whose file it is.
TEST_F(UndoRules, UnderChainedIdsANeighboursFileStaysHis) {
  setZone("ann:x:501:101:::\nbob:x:502:102:::\n", "users:x:101:\nbobs:x:102:\n");
  plant("/trees", {"d 501:101 bob", "-4755 501:101 bob/f x", "- 501:101 bob/g", "d 500:100 ann",
                   "d 500:100 ann/home", "- 500:100 ann/home/f", "- 500:100 ann/saved"});
  commit({"-c", "/trees/bob", "/trees/ann"});
  ASSERT_EQ(ownerOf("/trees/bob/f"), "502:102");
  ASSERT_EQ(shell("cd /trees/ann; mv home old; ln -s ../bob home; cp saved new; chown 501:101 new;"
                  "mv new saved; rm ../bob/g; touch ../bob/g; chown 501:101 ../bob/g")
                .status,
            0);
  const RunResult undone = idshift({"-U"});
  EXPECT_EQ(ownerOf("/trees/bob/f"), "501:101");
  EXPECT_EQ(ownerOf("/trees/ann/home/f"), "501:101");
  EXPECT_EQ(ownerOf("/trees/ann/saved"), "501:101");  // a file of 501 may be that of bob
  for (const char* path : {"/trees/ann/home", "/trees/ann/saved", "/trees/bob/g"})
    EXPECT_TRUE(contains(undone.err, complaint(path, kStale))) << undone;
  EXPECT_EQ(countOf(undone.err, "\n"), 4U) << undone;
}

// The file system uses the number of a deleted file for a new one.
TEST_F(UndoRules, AReusedInodeNumberNamesNobodysFile) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  plant("/trees", {"d 500:100 ann", "- 0:100 ann/roots x", "d 500:100 ann/d", "d 0:0 etc"});
  commit();
  const ino_t rootsInode = inodeOf("/trees/ann/roots");
  asAnn("rm -f roots; cp /bin/true roots; chmod 4755 roots");
  ASSERT_EQ(inodeOf("/trees/ann/roots"), rootsInode);
  RunResult undone = idshift({"-U"});
  EXPECT_EQ(stateOf("/trees/ann/roots"), "4755 10001:10000") << undone;

  plant("/trees", {"- 0:100 ann/d/shadow"});
  commit();
  const ino_t shadowInode = inodeOf("/trees/ann/d/shadow");
  asAnn("rm d/shadow");
  writeFile("/trees/etc/shadow", "", 0600);
  ASSERT_EQ(inodeOf("/trees/etc/shadow"), shadowInode);
  asAnn("rmdir d; ln -s ../etc d");
  undone = idshift({"-U"});
  EXPECT_EQ(stateOf("/trees/etc/shadow"), "0600 0:0") << undone;
}

// ---- Obstacles

TEST_F(UndoRules, WhatRootAloneCanPutInTheWayIsWaitedFor) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  fs::create_directory("/trees/disk");
  const auto setImmutable = [](bool isOn) {
    const UniqueFd file(open("/trees/disk/t/f", O_RDONLY | O_CLOEXEC));
    int flags = 0;
    ASSERT_EQ(ioctl(file.get(), FS_IOC_GETFLAGS, &flags), 0);
    flags = isOn ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    ASSERT_EQ(ioctl(file.get(), FS_IOC_SETFLAGS, &flags), 0);
  };
  const struct {
    const char* what;
    std::function<void()> obstruct, clear;
    uint64_t waiting;  // changes and account lines
  } rows[] = {
      {"read-only", [] { ASSERT_EQ(mount("", "/trees/disk", "", MS_REMOUNT | MS_RDONLY, ""), 0); },
       [] { ASSERT_EQ(mount("", "/trees/disk", "", MS_REMOUNT, ""), 0); }, 2 + 5},
      {"immutable", [&] { setImmutable(true); }, [&] { setImmutable(false); }, 1 + 5},
      {"not mounted", [&] { disk.unmount(); }, [&] { disk.mountAt("/trees/disk"); }, 2 + 5},
  };
  disk.mountAt("/trees/disk");
  plant("/trees",
        {"- 500:100 near", "d 0:0 disk/t", "- 500:100 disk/t/f", "-6755 500:100 disk/t/g"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const TreeSnapshot before = takeSnapshot("/trees");
    const std::string accountsBefore = accounts();
    commit({"-C", "/trees"});
    row.obstruct();
    waits(idshift({"-U"}), row.waiting);
    EXPECT_EQ(ownerOf("/trees/near"), "500:100");
    EXPECT_NE(accounts(), accountsBefore);
    waits(idshift({"-U"}), row.waiting);
    row.clear();
    completes(idshift({"-U"}));
    EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));
    EXPECT_EQ(accounts(), accountsBefore);
  }

  // An administrator can end the waiting with a pretended undo.
  commit({"-C", "/trees"});
  rows[0].obstruct();
  waits(idshift({"-U"}), 7);
  completes(idshift({"-U", "-F"}));
  EXPECT_EQ(ownerOf("/trees/disk/t/f"), "10001:10000");
}

TEST_F(UndoRules, AnAccountFileThatCannotBeWrittenIsWaitedFor) {
  plant("/trees", {"- 500:100 f"});
  const std::string before = accounts();
  commit({"-C", "/trees"});
  writeFile("/etc/passwd.lock", "1\n");  // the lock of a living process
  RunResult undone = idshift({"-U"});
  EXPECT_TRUE(contains(undone.err, "Error: passwd file update failed for user: ann\n")) << undone;
  EXPECT_TRUE(contains(readFile(paths::kPrivateLog), "\n=ann"));
  EXPECT_TRUE(contains(undone.err, "could not be backed out yet")) << undone;
  fs::remove("/etc/passwd.lock");
  completes(idshift({"-U"}));
  EXPECT_EQ(accounts(), before);
}

TEST_F(UndoRules, WhatAUserPutsInTheWayIsNotWaitedFor) {
  for (const int error : {EROFS, EIO, EPERM, EINTR}) {
    SCOPED_TRACE(strerror(error));
    plant("/trees", {"d 500:100 ann", "d 500:100 ann/d", "- 500:100 ann/d/f", "- 500:100 ann/z"});
    const std::string before = accounts();
    commit({"-C", "/trees"});
    UsersMount users;
    if (!users.mountAt("/trees/ann/d", error))
      GTEST_SKIP() << "no FUSE here: " << strerror(errno);
    const RunResult undone = idshift({"-U"});
    EXPECT_TRUE(contains(undone.err, "/trees/ann/d/f: ") &&
                contains(undone.err, "have been backed out"))
        << undone;
    EXPECT_TRUE(isUsedUp());
    EXPECT_EQ(ownerOf("/trees/ann/z"), "500:100");
    EXPECT_EQ(accounts(), before);
    users.unmount();
    EXPECT_EQ(ownerOf("/trees/ann/d/f"), "10001:10000");
    fs::remove_all("/trees/ann");
  }
}

// ---- Mode bits that a killed run did not restore

TEST_F(UndoRules, BitsThatAKilledRunLostComeBackUnlessSomebodyTouchedTheFile) {
  if (kSanitized)
    GTEST_SKIP() << "the calls of the sanitizers' runtime are in the way";
  const auto isChown = [](const SystemCall& call) {
    return call.number == __NR_fchownat || call.number == __NR_lchown || call.number == __NR_chown;
  };
  const auto killBehind = [&](const char* letter, const std::vector<std::string>& trees) {
    std::vector<std::string> command = {binaryPath("idshift"), letter};
    command.insert(command.end(), trees.begin(), trees.end());
    const RunResult killed = runTraced(command, atCall(isChown, 1, [](const SystemCall&) {
                                         return CallVerdict{CallVerdict::kKillAfter, 0};
                                       }));
    EXPECT_EQ(killed.signal, SIGKILL) << killed;
    EXPECT_EQ(stateOf("/trees/t/f").substr(0, 4), "0755") << "the kernel keeps the bits";
  };
  LoopDisk disk;  // on which a new file gets the inode number of the removed one
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  const std::pair<const char*, std::string> rows[] = {
      {"", "6755"},
      {"sleep 2.1; chmod 700 f", "0700"},
      {"o=$(stat -c %u:%g f); i=$(stat -c %i f); rm f; umask 022; touch f; chown $o f; chmod 755 f; "
       "[ $i = $(stat -c %i f) ]",
       "0755"}};
  for (const auto& [touch, mode] : rows) {
    SCOPED_TRACE(touch);
    const std::string command = "cd /trees/t; " + std::string(touch);
    plant("/trees", {"d 0:0 t", "-6755 500:100 t/f"});
    usleep(12'000);
    killBehind("-c", {"/trees"});
    ASSERT_EQ(shell(command).status, 0);
    commit();
    EXPECT_EQ(stateOf("/trees/t/f"), mode + " 10001:10000");
    fs::remove_all("/trees/t");
    for (const char* former : {paths::kPrivateLog, paths::kPrivateLogIndex})
      fs::remove(former);

    plant("/trees", {"d 0:0 t", "-6755 500:100 t/f"});
    commit();
    killBehind("-U", {});
    ASSERT_EQ(shell(command).status, 0);
    idshift({"-U"});
    EXPECT_EQ(stateOf("/trees/t/f"), mode + " 500:100");
    EXPECT_TRUE(isUsedUp());
    fs::remove_all("/trees/t");
  }
}
