// A file is identified by its file system, its inode and its birth, whatever its name is and
// wherever its number turns up again. The ids are chained (ann 500 gets 501 of bob, bob gets 502 of
// cid, cid gets 503), so a file that is converted twice, or not at all, belongs to somebody else.
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "services/paths.h"
#include "tests/support/loop_disk.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

namespace {

namespace fs = std::filesystem;

class Identity : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    setZone("ann:x:501:100:::\nbob:x:502:101:::\ncid:x:503:100:::\n",
            "users:x:100:\nbobs:x:101:\n");
  }

  // Makes a file with one link at exactly this path, without interpreting the path.
  static void put(const std::string& path, uid_t uid, gid_t gid) {
    writeFile(path, "");
    ASSERT_EQ(chown(path.c_str(), uid, gid), 0);
  }

  static void settle() { usleep(12'000); }  // inode and birth time do not identify a younger file

  static std::string numbersOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  }

  static uint64_t inodeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_ino;
  }

  // Expects status 0 and nothing on standard error.
  static void runsClean(const std::vector<std::string>& arguments) {
    const RunResult result = idshift(arguments);
    EXPECT_TRUE(result.status == 0 && result.err.empty()) << result;
  }
};

}  // namespace

TEST_F(Identity, AFileIsConvertedOnceAndUndoneWhateverItIsCalled) {
  put("/trees/bob/neighbour", 501, 101);
  put("/trees/bob/linked", 501, 101);
  const std::string forged = numbersOf("/trees/bob/neighbour");
  std::vector<std::string> names = {
      "plain",
      "mail:2,S",
      "a:b:c:d:e:f:g:h",
      ":",
      "one\nline feed",
      "\n",
      "#comment",
      "\x01\x7f\xff \t",
      "x:" + forged + ":1:1:1:1",
      "x\n/trees/bob/neighbour:" + forged + ":0:0:1:1\n=root:0:0:1:1\ny",
      "!Thu Nov 12 12:34:28 2026",
      std::string(255, 'n')};
  for (int i = 0; i < 1200; ++i)  // more than the attribute of an older log could record
    names.push_back("line\nfeed" + std::to_string(i));
  for (const std::string& name : names)
    put("/trees/ann/" + name, 500, 100);
  // A second name of the file of bob. In the log this name reads like the inode of the file.
  ASSERT_EQ(link("/trees/bob/linked", ("/trees/ann/z:" + numbersOf("/trees/bob/linked")).c_str()),
            0);
  std::string deep = "/trees/ann";
  for (int i = 0; i < 15; ++i)
    fs::create_directory(deep += "/" + std::string(250, 'd'));
  put(deep + "/end", 500, 100);
  settle();
  const TreeSnapshot before = takeSnapshot("/trees");

  runsClean({"-c", "/trees/ann"});
  runsClean({"-c", "/trees"});  // the file of bob must not count as converted
  runsClean({"-c", "/trees"});
  for (const std::string& name : names)
    EXPECT_EQ(ownerOf("/trees/ann/" + name), "501:100") << name;
  EXPECT_EQ(ownerOf(deep + "/end"), "501:100");
  EXPECT_EQ(ownerOf("/trees/bob/neighbour"), "502:101");
  EXPECT_EQ(ownerOf("/trees/bob/linked"), "502:101");
  for (int section = 0; section < 2; ++section) {
    const RunResult undone = idshift({"-U"});
    EXPECT_TRUE(undone.status == 0 && countOf(undone.err, "\n") == 1) << undone;
  }
  EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));
}

// An editor that saves by replacing a file reuses inode numbers in this way. So does a mail system
// that delivers a mail after another was deleted.
TEST_F(Identity, ANewFileWithAKnownNumberIsConvertedButNoneThatWasGivenBack) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  put("/trees/t/file", 500, 100);
  settle();
  runsClean({"-c", "/trees"});
  const uint64_t number = inodeOf("/trees/t/file");
  fs::remove("/trees/t/file");
  put("/trees/t/new", 500, 100);
  ASSERT_EQ(inodeOf("/trees/t/new"), number) << "the file system hands numbers out differently";
  settle();
  const RunResult again = idshift({"-c", "/trees"});
  EXPECT_EQ(again.out, "1 file(s) changed\n") << again;
  EXPECT_EQ(ownerOf("/trees/t/new"), "501:100");
  EXPECT_TRUE(contains(readFile(paths::kPrivateLog), "\n/trees/t/new:"));

  // A file that was given back by hand stays: a run that has ended lost no change.
  ASSERT_EQ(chown("/trees/t/new", 500, 100), 0);
  for (const std::string further : {"second", "third"}) {
    settle();
    put("/trees/t/" + further, 500, 100);
    EXPECT_EQ(idshift({"-c", "/trees"}).out, "1 file(s) changed\n");
  }
  EXPECT_EQ(ownerOf("/trees/t/new"), "500:100");
}

// The device number changes with the mount; the id of the file system does not.
TEST_F(Identity, AFileSystemIsKnownAgainAfterItWasMountedAnew) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk", "btrfs"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  put("/trees/t/file", 500, 100);
  settle();
  runsClean({"-c", "/trees"});
  const std::string before = numbersOf("/trees/t/file");
  disk.unmount();
  fs::create_directory("/tmp/other");
  ASSERT_EQ(mount("other", "/tmp/other", "tmpfs", 0, ""), 0);  // takes the device number
  disk.mountAt("/trees");
  ASSERT_NE(numbersOf("/trees/t/file"), before) << "the mount has its old number";
  const RunResult again = idshift({"-c", "/trees"});
  EXPECT_EQ(again.out, "0 file(s) changed\n") << again;
  EXPECT_EQ(ownerOf("/trees/t/file"), "501:100");
  EXPECT_EQ(idshift({"-U"}).out, "1 file(s) changed\n");
  EXPECT_EQ(ownerOf("/trees/t/file"), "500:100");
}

// The first change of an entry copies it from the lower layer up. One of several names of an inode
// then gets an inode of its own.
TEST_F(Identity, AnOverlayCopiesUpBeforeTheRecordIsMade) {
  plant("/tmp/lower", {"-644 500:100 one text", "h 0:0 two one", "-4755 501:101 suid x",
                       "d 500:100 dir", "- 500:100 dir/inner"});
  fs::create_directories("/tmp/upper");
  fs::create_directories("/tmp/work");
  for (const char* options :
       {"lowerdir=/tmp/lower,upperdir=/tmp/upper,workdir=/tmp/work",
        "lowerdir=/tmp/lower,upperdir=/tmp/upper,workdir=/tmp/work,xino=on"}) {
    SCOPED_TRACE(options);
    if (mount("overlay", "/trees", "overlay", 0, options) != 0)
      GTEST_SKIP() << "no overlay here: " << strerror(errno);
    const TreeSnapshot before = takeSnapshot("/trees");
    for (int run = 0; run < 2; ++run)
      runsClean({"-c", "/trees"});
    for (const char* name : {"one", "two", "dir", "dir/inner"})
      EXPECT_EQ(ownerOf(std::string("/trees/") + name), "501:100") << name;
    EXPECT_EQ(ownerOf("/trees/suid"), "502:101");
    const RunResult undone = idshift({"-U"});
    EXPECT_EQ(countOf(undone.err, "\n"), 1U) << undone;
    EXPECT_EQ(takeSnapshot("/trees").owners(), before.owners());
    ASSERT_EQ(umount("/trees"), 0);
    for (const char* layer : {"/tmp/upper", "/tmp/work"}) {
      fs::remove_all(layer);
      fs::create_directory(layer);
    }
  }
}

// Without birth times, device and inode number must do. Nothing is converted twice.
TEST_F(Identity, WithoutBirthTimesTheNumbersTell) {
  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk", "ext4", {"-I", "128"}); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  put("/trees/t/a:1:2:3:4:5:6", 500, 100);
  settle();
  for (int run = 0; run < 2; ++run)
    runsClean({"-c", "/trees"});
  EXPECT_EQ(ownerOf("/trees/t/a:1:2:3:4:5:6"), "501:100");
}

// A name with line feeds may look like lines of the log. It stays a name, even after an edit of the
// log.
TEST_F(Identity, AnEditedLogIsUndoneByItsOwnLinesAlone) {
  const std::string name = "x\n/etc/passwd:1:1:0:0:501:100\n@root:0:5\n=root:0:0:5:5\ny";
  put("/trees/t/" + name, 500, 100);
  put("/trees/t/plain", 500, 100);
  settle();
  const TreeSnapshot before = takeSnapshot("/trees");
  const std::string accounts = readFile("/etc/passwd") + readFile("/etc/group");
  runsClean({"-c", "/trees"});
  ASSERT_EQ(shell("cp /etc/orvantadc/idshift.log /tmp/log; sed -i '2i # by hand' /tmp/log;"
                  "cat /tmp/log > /etc/orvantadc/idshift.log")
                .status,
            0);
  const RunResult undone = idshift({"-U"});
  EXPECT_EQ(countOf(undone.err, "\n"), 1U) << undone;
  EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));
  EXPECT_EQ(readFile("/etc/passwd") + readFile("/etc/group"), accounts);
}

// The copy is made before the commit. So both disks are converted, and both are known in later
// runs.
TEST_F(Identity, ADiskAndItsCopyAreTwo) {
  LoopDisk disk, copy;
  for (LoopDisk* made : {&disk, &copy})
    if (const std::string why = made->create(made == &disk ? "/tmp/a" : "/tmp/b"); !why.empty())
      GTEST_SKIP() << why;
  fs::create_directory("/trees/a");
  fs::create_directory("/trees/b");
  disk.mountAt("/trees/a");
  plant("/trees/a", {"- 500:100 f"});
  disk.unmount();
  ASSERT_EQ(shell("dd if=/tmp/a of=/tmp/b bs=1M conv=notrunc; sync").status, 0);
  disk.mountAt("/trees/a");
  copy.mountAt("/trees/b");
  settle();
  EXPECT_EQ(idshift({"-c", "/trees"}).out, "2 file(s) changed\n");
  EXPECT_EQ(idshift({"-c", "/trees"}).out, "0 file(s) changed\n");
  // Simulates another boot: the boot id begins at byte 16 of the record of a section.
  std::string index = readFile(paths::kPrivateLogIndex);
  for (size_t at = 0; at < index.size(); at += 40)
    if (index[at] == 'S')
      index[at + 16] ^= 1;
  writeFile(paths::kPrivateLogIndex, index, 0600);
  EXPECT_EQ(idshift({"-c", "/trees"}).out, "0 file(s) changed\n");
  EXPECT_EQ(idshift({"-U"}).out, "2 file(s) changed\n");
  EXPECT_EQ(ownerOf("/trees/a/f") + ownerOf("/trees/b/f"), "500:100500:100");
}

// A run with idshift.hardened off leaves the records of the other runs in the index alone.
TEST_F(Identity, ARunThatTakesTheTextAtItsWordKeepsTheIndex) {
  put("/trees/bob/neighbour", 501, 101);
  put("/trees/ann/x\n/trees/bob/neighbour:1:1:666:101:502:101\ny", 500, 100);
  settle();
  runsClean({"-c", "/trees/ann", "/trees/bob"});
  put("/trees/new/file", 500, 100);
  settle();
  const TreeSnapshot before = takeSnapshot("/trees");
  addSetting("idshift.hardened = false");
  runsClean({"-c", "/trees/new"});
  ASSERT_EQ(shell("sed -i /hardened/d /etc/orvantadc/orvantadc.conf").status, 0);
  idshift({"-U"});
  EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));
  idshift({"-U"});
  EXPECT_EQ(ownerOf("/trees/bob/neighbour"), "501:101");
}

// The run is killed in the line of bob. His uid counts as an old id all the same, so a file with
// that uid, which is the new one of ann, may be his own.
TEST_F(Identity, AnOldIdOfATornLineIsSomebodysOwn) {
  put("/trees/ann/file", 500, 100);
  put("/trees/bob/file", 501, 101);
  put("/trees/own", 501, 100);
  settle();
  const auto isChange = [](const SystemCall& call) {
    return call.number == SYS_fchownat || call.number == SYS_lchown;
  };
  for (const auto verdict : {CallVerdict::kKill, CallVerdict::kKillAfter}) {
    std::filesystem::remove("/etc/orvantadc/idshift.log");
    const auto kill = [verdict](const SystemCall&) { return CallVerdict{verdict}; };
    runTraced({binaryPath("idshift"), "-c", "/trees/ann", "/trees/bob"}, atCall(isChange, 2, kill));
    EXPECT_EQ(ownerOf("/trees/ann/file"), "501:100");
    ASSERT_EQ(rename("/trees/ann/file", "/trees/ann/away"), 0);
    ASSERT_EQ(rename("/trees/own", "/trees/ann/file"), 0);
    idshift({"-U"});
    EXPECT_EQ(ownerOf("/trees/ann/file"), "501:100");
    EXPECT_EQ(ownerOf("/trees/bob/file"), "501:101");
    ASSERT_EQ(rename("/trees/ann/file", "/trees/own"), 0);
    ASSERT_EQ(rename("/trees/ann/away", "/trees/ann/file"), 0);
    ASSERT_EQ(chown("/trees/ann/file", 500, 100), 0);
  }
}

// In a log without an index a colon in a name shifts the fields of the line. Such a line changes no
// file, and the undo does not wait for it.
TEST_F(Identity, ALiteralLineWithMoreFieldsThanAChangeIsGivenUp) {
  put("/trees/t/a", 501, 100);
  writeFile(paths::kPrivateLog,
            "domain:corp\n!Thu Nov 12\n/trees/t/a:1:1:0:100:501:100:1:5:500:100:501:100\n"
            "/trees/t/mail:2,S:1:6:500:100:501:100\n");
  EXPECT_EQ(idshift({"-U"}).err,
            "Error: cannot chown: /trees/t/a: Stale file handle\n"
            "Error: cannot chown: /trees/t/mail: Stale file handle\n"
            "Changes from Thu Nov 12 have been backed out.\n");
  EXPECT_EQ(ownerOf("/trees/t/a"), "501:100");
}
