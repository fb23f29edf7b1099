// idshift.strict: runs that are refused or end with a status of their own, and the same runs
// without it.
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <filesystem>

#include "services/paths.h"
#include "tests/support/attributes.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/users_mount.h"
#include "tests/support/whole_run.h"

namespace {

class Strict : public WholeRun {
 protected:
  static RunResult commitAll() { return idshift({"-C", "/trees/t"}); }

  // Makes the machine of WholeRun anew, and a tree of two files.
  static void begin(bool isStrict) {
    umount2("/trees/t/locked", MNT_DETACH);
    std::filesystem::remove_all("/trees/t");
    for (const char* file : {paths::kPrivateLog, paths::kPrivateLogIndex, "/etc/passwd.lock"})
      std::filesystem::remove(file);
    writeFile(paths::kSettings, std::string("domain.name = corp\nidshift.strict = ") +
                                    (isStrict ? "yes" : "no") + "\n");
    setPasswd(kPasswd);
    setGroup(kGroup);
    setZone(kUsers, kGroups);
    plant("/trees", {"d 0:0 t", "- 500:100 t/a", "- 500:100 t/locked"});
    usleep(12'000);
  }

  static void lockFile() {
    ASSERT_EQ(mount("/trees/t/locked", "/trees/t/locked", "", MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("", "/trees/t/locked", "", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  }

  static bool haveAccountsMoved() { return readFile(paths::kPasswd) != kPasswd; }

  static constexpr const char* kPasswd =
      "root:x:0:0::/root:/bin/sh\nann:x:500:100::/:\nbob:x:501:101::/:\n";
  static constexpr const char* kGroup = "root:x:0:\nusers:x:100:\nbobs:x:101:\n";
  static constexpr const char* kUsers = "ann:x:10001:10000:::\n";
  static constexpr const char* kGroups = "users:x:10000:\n";
};

}  // namespace

TEST_F(Strict, WhatIsLeftUndoneHasAStatus) {
  UsersMount broken;
  const struct {
    const char* what;
    std::function<void()> obstruct;
    std::function<RunResult()> run;
    bool isComplete = false;
    bool moved = false;  // whether the accounts move with strict
  } rows[] = {
      {"nothing", [] {}, commitAll, true, true},
      {"an entry", lockFile, commitAll},
      {"a directory that cannot be read",
       [&broken] {
         std::filesystem::create_directory("/trees/t/d");
         ASSERT_TRUE(broken.mountAt("/trees/t/d", EIO, FUSE_OPENDIR)) << "no FUSE";
       },
       commitAll},
      {"an ACL",
       [] {
         addSetting("idshift.convert.acls = true");
         setAcl("/trees/t/a", "u:500:r u:10001:w");
       },
       commitAll},
      {"an account", [] { writeFile("/etc/passwd.lock", "1\n"); }, commitAll},
      {"a line of an undo",
       [] {
         ASSERT_EQ(commitAll().status, 0);
         std::filesystem::remove("/trees/t/a");
       },
       [] { return idshift({"-U"}); }},
  };
  for (const auto& row : rows) {
    for (const bool isStrict : {true, false}) {
      SCOPED_TRACE(row.what + std::string(isStrict ? ", strict" : ""));
      begin(isStrict);
      row.obstruct();
      const RunResult result = row.run();
      broken.unmount();
      EXPECT_EQ(result.status, isStrict && !row.isComplete ? 167 : 0) << result;
      EXPECT_TRUE(contains(result.out, " file(s) changed\n")) << result;
      EXPECT_TRUE(!isStrict || haveAccountsMoved() == row.moved) << result;
    }
  }
}

TEST_F(Strict, ConflictsThatWouldMakeOneAccountOfTwoAreRefused) {
  const struct {
    const char* what;
    const char* setting;
    const char* passwd;
    const char* zone;
    const char* words;  // of the message with strict
    bool isRefused;
  } rows[] = {
      {"an account that keeps its id has it", "nss.user.ignore = bob",
       "ann:x:500:100::/:\nbob:x:10001:101::/:\n", kUsers,
       "users ann and bob would share uid 10001", true},
      {"nobody is in the zone by name", "", "cid:x:500:100::/:\n", "zed:x:500:10000:::\n",
       "not one local user is in the zone by name", true},
      {"root is in the zone", "", "root:x:0:0::/:\nann:x:500:100::/:\n",
       "root:x:70000:0:::\nann:x:10001:10000:::\n", "root's uid 0 would become 70000 (user root)",
       true},
      {"text behind the digits of a uid", "", "ann:x:500:100::/:\nbob:x:502x:100::/:\n",
       "ann:x:10001:10000:::\nbob:x:10002:10000:::\n",
       "the uid of user bob is no plain number: it counts as 502 and would become 10002", true},
      {"two names of one zone account", "", "ann:x:500:100::/:\nannie:x:502:100::/:\n", kUsers,
       "users ann and annie are both user ann of the zone", false},
      {"no doubt", "", "ann:x:500:100::/:\nbob:x:501:101::/:\n", kUsers, "", false},
  };
  for (const auto& row : rows) {
    for (const bool isStrict : {true, false}) {
      SCOPED_TRACE(row.what + std::string(isStrict ? ", strict" : ""));
      begin(isStrict);
      addSetting(row.setting);
      setPasswd(row.passwd);
      setZone(row.zone, kGroups);
      writeFile("/tmp/map", "annie ann\n");
      const std::vector<std::string> tail = {"-u", "/tmp/map", "/trees/t"};
      const RunResult shown = idshift(tail);
      EXPECT_EQ(shown.status, 0) << shown;
      EXPECT_EQ(contains(shown.err, row.words), isStrict || *row.words == '\0') << shown;
      std::vector<std::string> commit = {"-C"};
      commit.insert(commit.end(), tail.begin(), tail.end());
      const RunResult result = idshift(commit);
      const bool isRefused = isStrict && row.isRefused;
      EXPECT_EQ(result.status, isRefused ? 169 : 0) << result;
      EXPECT_EQ(contains(result.err, row.words), isStrict || *row.words == '\0') << result;
      EXPECT_EQ(ownerOf("/trees/t/a") == "500:100", isRefused);
      EXPECT_EQ(readFile(paths::kPasswd) == row.passwd, isRefused);
    }
  }
}

TEST_F(Strict, WhatIsRemoteByItsKindIsLeftOut) {
  const struct {
    bool isStrict;
    const char* kind;
    std::vector<std::string> options;
    bool isConverted;
  } rows[] = {
      {true, "fuse.sshfs", {}, false},
      {true, "fuse.sshfs", {"--nfs"}, true},
      {true, "fuse.other", {}, true},
      {false, "fuse.sshfs", {}, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.kind << row.isStrict << row.options.size());
    begin(row.isStrict);
    std::filesystem::create_directory("/trees/t/d");
    UsersMount far;
    ASSERT_TRUE(far.mountAt("/trees/t/d", 0, 0, row.kind)) << "no FUSE";
    std::vector<std::string> commit = {"-C", "/trees/t"};
    commit.insert(commit.begin(), row.options.begin(), row.options.end());
    const RunResult result = idshift(commit);
    EXPECT_EQ(result.status, 0) << result;
    EXPECT_EQ(ownerOf("/trees/t/d/f"), row.isConverted ? "10001:10000" : "500:100");
  }
}

// During the walk a file is moved from a directory that is still to be walked to one that was
// walked.
TEST_F(Strict, WhatComesBehindTheWalkIsFound) {
  for (const bool isStrict : {true, false}) {
    SCOPED_TRACE(isStrict);
    begin(isStrict);
    plant("/trees", {"d 0:0 t/x", "- 500:100 t/x/f", "d 0:0 t/y", "- 500:100 t/y/f"});
    usleep(12'000);
    std::string first;
    const RunResult result =
        runTraced({binaryPath("idshift"), "-C", "/trees/t"}, [&](const SystemCall& call) {
          if (call.number != SYS_openat || !first.empty())
            return CallVerdict{};
          for (const char* name : {"x", "y"}) {
            const std::string other = *name == 'x' ? "y" : "x";
            if (ownerOf(std::string("/trees/t/") + name + "/f") == "10001:10000") {
              first = name;
              EXPECT_EQ(rename(("/trees/t/" + other + "/f").c_str(),
                               ("/trees/t/" + first + "/g").c_str()),
                        0);
            }
          }
          return CallVerdict{};
        });
    EXPECT_EQ(result.status, 0) << result;
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(ownerOf("/trees/t/" + first + "/g"), isStrict ? "10001:10000" : "500:100");
    // Nothing is recorded or counted twice.
    const std::string log = readFile(paths::kPrivateLog);
    EXPECT_EQ(countOf(log, "/trees/t/a:"), 1U) << log;
    EXPECT_EQ(countOf(log, "\n+"), 0U) << log;
  }
}

TEST_F(Strict, AFormerConversionIsNotPassedOverInSilence) {
  for (const bool isStrict : {true, false}) {
    SCOPED_TRACE(isStrict);
    begin(isStrict);
    ASSERT_EQ(commitAll().status, 0);
    setZone("ann:x:20001:10000:::\n", kGroups);
    const RunResult again = commitAll();
    EXPECT_EQ(again.status, isStrict ? 167 : 0) << again;
    EXPECT_EQ(contains(again.err, "use --restart"), isStrict) << again;
    EXPECT_EQ(ownerOf("/trees/t/a"), "10001:10000");
    const RunResult anew = idshift({"-C", "-R", "/trees/t"});
    EXPECT_EQ(anew.status, 0) << anew;
    // Without strict the accounts have moved by now, so the file is in no conflict any more.
    EXPECT_EQ(ownerOf("/trees/t/a"), isStrict ? "20001:10000" : "10001:10000");
  }
}

TEST_F(Strict, TheLogIsRootsToRead) {
  for (const bool isStrict : {true, false}) {
    begin(isStrict);
    ASSERT_EQ(commitAll().status, 0);
    for (const char* file : {paths::kPrivateLog, paths::kPrivateLogIndex}) {
      struct stat status = {};
      ASSERT_EQ(stat(file, &status), 0);
      EXPECT_EQ(status.st_mode & 07777, isStrict ? 0600U : 0644U) << file;
    }
  }
}
