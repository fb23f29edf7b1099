// ACLs and capabilities through commit and undo. The rows have the expected lists as setfacl would
// write them.
#include "tests/support/attributes.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
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

class Attributes : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    addSetting("idshift.preserve.execution.bits = true");
    addSetting("idshift.preserve.capabilities = true");
    addSetting("idshift.convert.acls = true");
  }

  // With these ids a file that is converted twice belongs to somebody else.
  static void chainIds() {
    setZone("ann:x:501:101:::\nbob:x:502:102:::\n", "users:x:101:\nbobs:x:102:\n");
  }

  static RunResult commit(std::vector<std::string> arguments = {"-c", "/trees"}) {
    usleep(12'000);  // inode and birth time do not identify a younger file
    return idshift(std::move(arguments));
  }
};

}  // namespace

TEST_F(Attributes, ACommitAndItsUndosLeaveEveryAttributeAsItWas) {
  chainIds();
  const std::string odd = "/trees/d/a:1:2:3\nb";
  plant("/trees",
        {"d 0:0 d", "- 0:0 d/roots text", "- 500:100 d/anns", "h 0:0 d/again d/anns",
         "-4755 501:101 d/suid", "- 502:0 d/plain", "l 500:100 d/link d/roots", "- 0:0 d/many"});
  std::string many = "u:501:r", manyConverted = "u:502:r";
  for (int id = 1000; id < 2000; ++id) {
    many += " g:" + std::to_string(id) + ":w";
    manyConverted += " g:" + std::to_string(id) + ":w";
  }
  setAcl("/trees/d/many", many);
  writeFile(odd, "");
  setAcl("/trees/d/roots", "u:500:r g:101:rw");
  setAcl("/trees/d/anns", "u:501:w u:500:r");
  setAcl("/trees/d/suid", "u:502:rw");
  setAcl("/trees/d", "u:501:rx");
  setAcl("/trees/d", "u:500:rx g:100:r", kDefaultAcl);
  setAcl(odd, "g:100:r");
  setCapability("/trees/d/anns", 2);
  setCapability("/trees/d/suid", 3);
  setCapability("/trees/d/roots", 3);
  const TreeSnapshot before = takeSnapshot("/trees");

  const RunResult first = commit();
  EXPECT_EQ(first.out, "5 file(s) changed\n7 ACL(s) changed\n") << first;
  EXPECT_EQ(first.err, "");
  EXPECT_EQ(aclOf("/trees/d/roots"), "u:501:r g:102:rw");
  EXPECT_EQ(aclOf("/trees/d/again"), "u:501:r u:502:w");
  EXPECT_EQ(aclOf("/trees/d/suid"), "u:50502:rw");
  EXPECT_EQ(aclOf("/trees/d"), "u:502:rx");
  EXPECT_EQ(aclOf("/trees/d", kDefaultAcl), "u:501:rx g:101:r");
  EXPECT_EQ(aclOf(odd), "g:101:r");
  EXPECT_EQ(aclOf("/trees/d/many"), manyConverted);
  TreeSnapshot after = takeSnapshot("/trees");
  for (const char* path : {"d/anns", "d/suid"})
    EXPECT_EQ(after.at(path).capability, before.at(path).capability) << path;
  EXPECT_EQ(after.at("d/suid").mode, before.at("d/suid").mode);

  // A further commit knows the ACLs that were converted. One that an undo set back is converted
  // again.
  setAcl("/trees/d/plain", "u:500:r");
  EXPECT_EQ(commit().out, "0 file(s) changed\n1 ACL(s) changed\n");
  const std::string report = idshift({"-r", "-"}).out;
  EXPECT_TRUE(contains(report,
                       "Default ACL Update(/trees/d) user 500 changed to 501, group 100 changed to "
                       "101\n"));
  EXPECT_EQ(countOf(report, "ACL Update("), 8U) << report;
  const std::string rows = idshift({"-r", "-", "--json"}).out;
  EXPECT_TRUE(contains(rows, R"("path":"/trees/d","users":[{"old":500,"new":501}],)"
                             R"("groups":[{"old":100,"new":101}]})"))
      << rows;
  EXPECT_EQ(idshift({"-U"}).out, "0 file(s) changed\n1 ACL(s) changed\n");
  EXPECT_EQ(aclOf("/trees/d/plain"), "u:500:r");
  removexattr("/trees/d/plain", kAccessAcl);
  ASSERT_EQ(chmod("/trees/d/plain", 0644), 0);
  const RunResult undo = idshift({"-U"});
  EXPECT_EQ(undo.out, "5 file(s) changed\n7 ACL(s) changed\n") << undo;
  EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));
  EXPECT_EQ(countOf(idshift({"-r", "-"}).out, "ACL Update("), 0U);
}

TEST_F(Attributes, WhatCannotBeConvertedIsLeftAndTold) {
  plant("/trees", {"- 0:0 both", "- 0:0 rest", "-755 500:100 caps"});
  setAcl("/trees/both", "u:500:r u:10001:w");
  setAcl("/trees/rest", "u:500:r");
  setCapability("/trees/caps", 3, 500);
  const RunResult result = commit();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "1 file(s) changed\n1 ACL(s) changed\n");
  EXPECT_TRUE(contains(result.err,
                       "Error: cannot convert the ACL of /trees/both: two of its entries would get "
                       "one id\n"));
  EXPECT_TRUE(contains(result.err, "capabilities of /trees/caps are for the root id 500"));
  EXPECT_TRUE(contains(result.err, "2 ACL(s) or capabilities could not be converted or kept.\n"));
  EXPECT_EQ(aclOf("/trees/both"), "u:500:r u:10001:w");
  EXPECT_EQ(aclOf("/trees/rest"), "u:10001:r");
}

// In the zone dora has the uid that ann had here.
TEST_F(Attributes, AStrangerOfTheOldIdCannotReadAnyMore) {
  zoneUsers = "ann:x:10001:10000:::\ndora:x:500:10000:::\n";
  setZone(zoneUsers, "users:x:10000:\n");
  plant("/trees", {"-600 0:0 secret text"});
  setAcl("/trees/secret", "u:500:r");
  const auto canRead = [](const char* uid) {
    return shell("setpriv --clear-groups --regid=9999 --reuid=" + std::string(uid) +
                 " cat /trees/secret")
               .status == 0;
  };
  EXPECT_TRUE(canRead("500"));
  commit();
  EXPECT_FALSE(canRead("500"));
  EXPECT_TRUE(canRead("10001"));
}

// After the commit a chmod sets the mask, an editor replaces the file, an administrator sets
// another list.
TEST_F(Attributes, AnUndoLeavesWhatIsNotTheConversions) {
  plant("/trees", {"- 0:0 masked", "- 0:0 saved", "- 0:0 given", "- 0:0 bare", "- 0:0 linked"});
  for (const char* name : {"masked", "saved", "given", "bare", "linked"})
    setAcl(std::string("/trees/") + name, "u:500:rw");
  commit();
  ASSERT_EQ(chmod("/trees/masked", 0604), 0);
  ASSERT_EQ(shell("cd /trees && echo > new && mv new saved && echo > victim && "
                  "ln -f victim linked")
                .status,
            0);
  for (const char* name : {"saved", "linked"})
    setAcl(std::string("/trees/") + name, "u:10001:rw");
  setAcl("/trees/given", "u:502:r u:10001:w");
  setAcl("/trees/bare", "u:502:r");
  const RunResult undo = idshift({"-U"});
  EXPECT_EQ(aclOf("/trees/masked"), "u:500:rw");
  EXPECT_EQ(aclOf("/trees/saved"), "u:500:rw");
  EXPECT_EQ(aclOf("/trees/given"), "u:500:w u:502:r");
  EXPECT_EQ(aclOf("/trees/bare"), "u:502:r");
  EXPECT_EQ(aclOf("/trees/linked"), "u:10001:rw");
  for (const char* name : {"bare", "linked"})
    EXPECT_TRUE(contains(undo.err, "cannot set the ACL of /trees/" + std::string(name) +
                                       " back: Stale file handle\n"))
        << undo;
  EXPECT_EQ(countOf(undo.err, "cannot set"), 2U);
}

// After the commit the entry for 501 in a new file may be that of bob, whose id was 501. Where no
// entry was for 501 before, it is that of ann.
TEST_F(Attributes, AnotherFileGoesBackOnlyWhereItsIdIsNobodysOldOne) {
  for (const char* others : {"u:501:r", "u:502:r"}) {
    SCOPED_TRACE(others);
    chainIds();
    std::filesystem::remove_all("/trees/t");
    plant("/trees", {"d 0:0 t", "- 0:0 t/saved", "- 0:0 t/other"});
    setAcl("/trees/t/saved", "u:500:rw");
    setAcl("/trees/t/other", others);
    commit({"-c", "-R", "/trees"});
    ASSERT_EQ(shell("cd /trees/t && echo > new && mv new saved").status, 0);
    setAcl("/trees/t/saved", "u:501:rw");
    EXPECT_EQ(idshift({"-U"}).status, 0);
    EXPECT_EQ(aclOf("/trees/t/saved"), others[4] == '1' ? "u:501:rw" : "u:500:rw");
    EXPECT_EQ(aclOf("/trees/t/other"), others);
  }
}

// Each row fails one call about the only file of the tree. With strict an attribute that was left
// gives a status, and the accounts stay.
TEST_F(Attributes, AFaultIsToldAndLeavesTheRestAsItWas) {
  const struct {
    const char* what;
    const char* owner;
    long number;
    const char* argument;  // how the path in the call begins
    int error;             // 0: the call succeeds, after `happens`
    std::function<void()> happens;
    const char* words;
    const char* acl;
  } rows[] = {
      {"no room", "0:0", SYS_setxattr, "/proc", ENOSPC, [] {},
       "cannot convert the ACL of /trees/t/f: No space left on device\n", "u:500:r"},
      {"exchanged", "0:0", SYS_llistxattr, "f", 0,
       [] { EXPECT_EQ(rename("/trees/bait", "/trees/t/f"), 0); },
       "cannot convert the ACL of /trees/t/f: Stale file handle\n", "u:500:w"},
      {"gone", "0:0", SYS_llistxattr, "f", 0, [] { EXPECT_EQ(unlink("/trees/t/f"), 0); }, "", ""},
      {"a capability", "500:0", SYS_setxattr, "/proc", EPERM, [] {},
       "cannot keep the capabilities of /trees/t/f: Operation not permitted\n", ""},
  };
  addSetting("idshift.strict = true");
  const std::string passwd = readFile(paths::kPasswd);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::filesystem::remove_all("/trees/t");
    for (const char* path : {paths::kPrivateLog, paths::kPrivateLogIndex, "/trees/bait"})
      std::filesystem::remove(path);
    setPasswd(passwd);
    plant("/trees", {"d 0:0 t", "- " + std::string(row.owner) + " t/f", "- 0:0 bait"});
    setAcl("/trees/bait", "u:500:w");
    if (row.owner[0] == '0')
      setAcl("/trees/t/f", "u:500:r");
    else
      setCapability("/trees/t/f", 2);
    const TracedResult result =
        runTraced({binaryPath("idshift"), "-C", "/trees/t"}, [&](const SystemCall& call) {
          if (call.number != row.number || !call.text(0).starts_with(row.argument))
            return CallVerdict{};
          row.happens();
          return row.error == 0 ? CallVerdict{} : CallVerdict{CallVerdict::kFail, row.error};
        });
    const bool isLeft = *row.words != '\0';
    EXPECT_EQ(result.status, isLeft ? 167 : 0) << result;
    EXPECT_TRUE(contains(result.err, row.words)) << result;
    EXPECT_EQ(contains(result.err, "1 ACL(s) or capabilities could not"), isLeft) << result;
    EXPECT_EQ(readFile(paths::kPasswd) == passwd, isLeft);
    EXPECT_EQ(aclOf("/trees/t/f"), row.acl);
  }
}

TEST_F(Attributes, FileSystemsThatCannot) {
  plant("/trees", {"- 0:0 fixed"});
  setAcl("/trees/fixed", "u:500:r");
  ASSERT_EQ(mount("/trees/fixed", "/trees/fixed", "", MS_BIND, nullptr), 0);
  ASSERT_EQ(mount("", "/trees/fixed", "", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  const RunResult fixed = commit();
  EXPECT_TRUE(contains(fixed.err, "the ACL of /trees/fixed: Read-only file system\n")) << fixed;

  // A file system without ACLs is asked for them once.
  ASSERT_EQ(mount("ramfs", "/trees", "ramfs", 0, nullptr), 0);
  plant("/trees", {"d 500:100 d", "- 500:100 d/a", "- 500:100 d/b", "- 0:0 c"});
  size_t asked = 0;
  const TracedResult without =
      runTraced({binaryPath("idshift"), "-c", "/trees"}, [&](const SystemCall& call) {
        asked +=
            call.number == SYS_lgetxattr || (call.number == SYS_llistxattr && call.text(0) == "c");
        return CallVerdict{};
      });
  EXPECT_EQ(without.out, "3 file(s) changed\n0 ACL(s) changed\n");
  EXPECT_EQ(without.err, "");
  EXPECT_EQ(asked, 1U);

  LoopDisk disk;
  if (const std::string why = disk.create("/tmp/disk"); !why.empty())
    GTEST_SKIP() << why;
  disk.mountAt("/trees");
  plant("/trees", {"- 0:0 mangled"});
  disk.unmount();
  writeFile("/tmp/bytes", "no list at all");
  ASSERT_EQ(shell("debugfs -w -R 'ea_set -r -f /tmp/bytes /mangled system.posix_acl_access' "
                  "/tmp/disk")
                .status,
            0);
  disk.mountAt("/trees");
  const RunResult mangled = commit();
  EXPECT_TRUE(contains(mangled.err, "the ACL of /trees/mangled: Invalid argument\n")) << mangled;
}
