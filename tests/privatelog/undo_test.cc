#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>

#include "accountdb/passwdDB.h"
#include "services/interrupt.h"
#include "services/unique_fd.h"
#include "tests/privatelog/log_world.h"

namespace {

namespace fs = std::filesystem;

const std::string kDate = "!Thu Nov 12 12:34:28 2026\n";
const std::string kBackedOut = "Changes from Thu Nov 12 12:34:28 2026 have been backed out.\n";

void setOwner(const std::string& path, uid_t uid, gid_t gid) {
  ASSERT_EQ(lchown(path.c_str(), uid, gid), 0) << path;
}

class UndoTest : public LogWorld {
 protected:
  void arrange() override {
    setPasswd("root:x:0:0::/root:/bin/sh\nann:x:10001:10000::/home/ann:/bin/sh\n");
    setGroup("root:x:0:\nstaff:x:10000:\n");
    fs::create_directories("/trees/t");
    setOwner("/trees/t", 10001, 10000);  // so what stands in it is not root's alone to change
  }

  // A file of ann's as a commit leaves it, and the line that tells of it.
  std::string converted(const std::string& path) {
    if (!exists(path))
      writeFile(path, "");
    setOwner(path, 10001, 10000);
    return path + idText(path) + kIds;
  }

  // Loads, opens and undoes as the tool does; the result and the count are on standard output.
  static RunResult undo(
      const std::function<void()>& prepare = [] {}, bool pretend = false) {
    return runInChild([&] {
      PrivateLog log;
      orvs::PasswdDB passwd(false);
      orvs::GroupDB group(false);
      passwd.storage.open();
      passwd.load(passwd.storage);
      group.storage.open();
      group.load(group.storage);
      if (!log.loadPrivateLog(false) || !log.openPrivateLog(true))
        return 1;
      prepare();
      CommandOptions options;
      options.pretend = pretend;
      const bool done = log.Undo(passwd, group, options);
      std::cout << (done ? "done " : "stopped ") << log.changeCount << "\n";
      return 0;
    });
  }

  const std::string kIds = ":500:100:10001:10000\n";
  const std::string kError = "Error: cannot chown: ";
  const std::string kStale = ": Stale file handle\n";
  const std::string kMissing = ": No such file or directory\n";
};

// ---- What each line asks for

TEST_F(UndoTest, BacksOutTheNewestSectionLineByLine) {
  const std::string before = "!Wed Nov 11 00:00:00 2026\n" + converted("/trees/t/early");
  const std::string a = converted("/trees/t/a");
  fs::create_symlink("/trees/t/target", "/trees/t/link");
  converted("/trees/t/target");
  const std::string link = converted("/trees/t/link");
  const std::string followed = ">/trees/t/link" + idText("/trees/t/target") + kIds;
  fs::create_symlink("/trees/t/none", "/trees/t/dangling");
  const std::string dangling = ">/trees/t/dangling:5:5" + kIds;
  converted("/trees/t/half");
  const std::string incomplete = "/trees/t/half" + idText("/trees/t/half") + ":500:100:10001\n";
  writeFile("/trees/t/undone", "");
  setOwner("/trees/t/undone", 500, 100);
  const std::string undone = "/trees/t/undone" + idText("/trees/t/undone") + ":500:100:10001\n";
  const std::string top = "/top:1:1" + kIds;
  const std::string gone = "/trees/t/gone:1:1" + kIds;
  const std::string lost = "/trees/none/gone:1:1" + kIds;
  const std::string failed = "/trees/t/a:1:1:7:7\n";
  const std::string other = "!Fri Nov 13 00:00:00 2026 and not a date of ours\n";

  writeFile(kLog, kHeader + before + other + kDate + a + "+/trees/t/a2:1:1\n" + failed + link +
                      followed + dangling + incomplete + undone + top + gone + lost +
                      "#/trees/t/early:1:1" + kIds + "@staff:100:10000\n" +
                      "=ann:500:100:10001:10000\n" + "=bad:500\n" + "@bad\n" + "\n");
  const RunResult run = undo();
  auto mark = [](const std::string& line) { return "#" + line.substr(1); };
  EXPECT_EQ(readFile(kLog), kHeader + before + other + mark(kDate) + mark(a) +
                                "#/trees/t/a2:1:1\n" + failed + mark(link) + mark(followed) +
                                mark(dangling) + mark(incomplete) + undone + mark(top) +
                                mark(gone) + mark(lost) + "#/trees/t/early:1:1" + kIds +
                                "#staff:100:10000\n" + "#ann:500:100:10001:10000\n" + "#bad:500\n" +
                                "#bad\n" + "\n");
  EXPECT_EQ(run.out, "done 13\n");
  EXPECT_EQ(run.err, kError + "/trees/t/dangling" + kMissing + "Warning: skipping /top" + kMissing +
                         kError + "/trees/t/gone" + kMissing +
                         "Warning: skipping /trees/none/gone" + kMissing + kBackedOut);
  for (const char* path : {"a", "link", "target", "half"})
    EXPECT_EQ(ownerOf(std::string("/trees/t/") + path), "500:100") << path;
  EXPECT_EQ(ownerOf("/trees/t/early"), "10001:10000");
  EXPECT_EQ(readFile(paths::kPasswd),
            "root:x:0:0::/root:/bin/sh\nann:x:500:100::/home/ann:/bin/sh\n");
  EXPECT_EQ(readFile(paths::kGroup), "root:x:0:\nstaff:x:100:\n");
}

TEST_F(UndoTest, AnEmptyLineBeginsNoSection) {
  const std::string text = kHeader + "\n" + converted("/trees/t/a");
  writeFile(kLog, text);
  const RunResult run = undo();
  EXPECT_EQ(run.out + run.err, "done 0\n");
  EXPECT_EQ(readFile(kLog), text);
}

TEST_F(UndoTest, PretendingUsesTheSectionUpAndChangesNothing) {
  const std::string a = converted("/trees/t/a");
  writeFile(kLog, kHeader + kDate + a + "/top:1:1:4294967295:0:7:7\n=ann:500:100:10001:10000\n");
  const std::string passwd = readFile(paths::kPasswd);
  const RunResult run = undo([] {}, true);
  EXPECT_EQ(run.out, "chown(/trees/t/a,500,100)\nchown(/top,4294967295,0)\ndone 3\n");
  EXPECT_EQ(run.err, kBackedOut);
  EXPECT_EQ(readFile(kLog), kHeader + "#" + kDate.substr(1) + "#" + a.substr(1) +
                                "#top:1:1:4294967295:0:7:7\n#ann:500:100:10001:10000\n");
  EXPECT_EQ(ownerOf("/trees/t/a"), "10001:10000");
  EXPECT_EQ(readFile(paths::kPasswd), passwd);
}

TEST_F(UndoTest, StopsBetweenTwoLinesOnASignal) {
  const std::string text = kHeader + kDate + converted("/trees/t/a");
  writeFile(kLog, text);
  const RunResult run = undo([] {
    interrupt::install();
    raise(SIGTERM);
  });
  EXPECT_EQ(run.out + run.err, "stopped 0\n");
  EXPECT_EQ(readFile(kLog), text);
}

// ---- Special mode bits

TEST_F(UndoTest, PutsSpecialBitsBackOnlyWhenTheSettingSaysSo) {
  for (const bool preserve : {false, true}) {
    if (preserve)
      addSetting("idshift.preserve.execution.bits = true");
    writeFile(kLog, kHeader + kDate + converted("/trees/t/s"));
    ASSERT_EQ(chmod("/trees/t/s", 06755), 0);
    EXPECT_EQ(undo().out, "done 1\n");
    EXPECT_EQ(ownerOf("/trees/t/s"), "500:100");
    EXPECT_EQ(takeSnapshot("/trees/t").at("s").mode, preserve ? 06755u : 0755u);
  }
}

TEST_F(UndoTest, StopsWhenTheModeCannotBeReadOrPutBack) {
  addSetting("idshift.preserve.execution.bits = true");
  const std::string text =
      kHeader + kDate + "/trees/t/gone:1:1" + kIds + converted("/trees/t/later");
  writeFile(kLog, text);
  RunResult run = undo();
  EXPECT_EQ(run.out, "stopped 0\n");
  EXPECT_EQ(run.err, "Failed to stat gone: No such file or directory\n");
  EXPECT_EQ(readFile(kLog), text);

  const std::string line = converted("/trees/t/s");
  ASSERT_EQ(chmod("/trees/t/s", 01755), 0);
  writeFile(kLog, kHeader + kDate + line);
  run = undo([] {
    // Without this capability a file of somebody else's can be given away, but its mode stays.
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    ASSERT_EQ(syscall(SYS_capget, &header, data), 0);
    data[0].effective &= ~(1u << CAP_FOWNER);
    ASSERT_EQ(syscall(SYS_capset, &header, data), 0);
  });
  EXPECT_EQ(run.out, "stopped 0\n");
  EXPECT_EQ(run.err,
            "Failed to set the execution bits of s back by chmod(): errno=1 (Operation not "
            "permitted)\n");
  EXPECT_EQ(ownerOf("/trees/t/s"), "500:100");
  EXPECT_EQ(readFile(kLog), kHeader + kDate + line);
}

// ---- What is not to be believed

using UndoUnderAttack = UndoTest;

// A directory, and a link to root's files in its place after the record was made.
TEST_F(UndoUnderAttack, LeavesAFileAloneWhenItsDirectoryWasExchanged) {
  fs::create_directory("/trees/t/d");
  const std::string text = kHeader + kDate + converted("/trees/t/d/shadow");
  fs::rename("/trees/t/d", "/trees/t/moved");
  fs::create_symlink("/etc", "/trees/t/d");
  writeFile("/etc/shadow", "root:*:1:\n", 0600);
  writeFile(kLog, text);
  EXPECT_EQ(undo().err, kError + "/trees/t/d/shadow" + kStale + kBackedOut);
  EXPECT_EQ(ownerOf("/etc/shadow"), "0:0");

  addSetting("idshift.hardened = false");  // takes the log at its word
  writeFile(kLog, text);
  EXPECT_EQ(undo().err, kBackedOut);
  EXPECT_EQ(ownerOf("/etc/shadow"), "500:100");
}

TEST_F(UndoUnderAttack, BelievesAnExchangedInodeByItsOwnerOrItsPlace) {
  const struct {
    const char* path;
    mode_t mode;
  } kDirectories[] = {{"/trees/root", 0755}, {"/trees/group", 0775}, {"/trees/all", 0777},
                      {"/tmp/mine", 0755},   {"/tmp/d", 0755},       {"/tmp/d-group", 0775},
                      {"/tmp/d-ann", 0755}};
  for (const auto& directory : kDirectories) {
    fs::create_directory(directory.path);
    ASSERT_EQ(chmod(directory.path, directory.mode), 0);
  }
  fs::create_symlink("/trees/root", "/trees/t/to-root");
  fs::create_symlink("/trees/t", "/trees/root/to-t");
  fs::create_symlink(".", "/trees/root/to-root");
  const struct {
    const char* path = "";
    OwnerIds owner;
    bool restored = false;
    bool isIncomplete = false;
  } kRows[] = {
      {"/trees/t/new-ids", {10001, 10000}, true},
      {"/trees/t/new-uid", {10001, 7}, false},
      {"/trees/t/another", {777, 7}, false},
      {"/trees/t/root", {0, 0}, false, true},  // the zeros of an incomplete line are no owner
      {"/trees/root/another", {777, 7}, true},
      {"/trees/group/another", {777, 7}, false},
      {"/trees/all/another", {777, 7}, false},
      {"/tmp/another", {777, 7}, false},
      {"/tmp/of-root", {0, 0}, false},
      {"/tmp/mine/another", {777, 7}, true},
      {"/tmp/d", {0, 0}, true},
      {"/tmp/d-group", {0, 0}, false},
      {"/tmp/d-ann", {777, 7}, false},
      {"/trees/t/to-root/behind", {777, 7}, false},
      {"/trees/root/to-t/behind", {777, 7}, false},
      {"/trees/root/to-root/behind-2", {777, 7}, true},
      {"/trees/root/to-t", {777, 7}, true},  // the link itself
  };
  std::string text = kHeader + kDate;
  std::string errors;
  for (const auto& row : kRows) {
    if (!exists(row.path))
      writeFile(row.path, "");
    setOwner(row.path, row.owner.uid, row.owner.gid);
    text.append(row.path).append(":1:1").append(row.isIncomplete ? ":500:100:\n" : kIds);
    if (!row.restored)
      errors.append(kError).append(row.path).append(kStale);
  }
  writeFile(kLog, text);
  EXPECT_EQ(undo().err, errors + kBackedOut);
  for (const auto& row : kRows)
    EXPECT_EQ(ownerOf(row.path) == "500:100", row.restored) << row.path;
}

TEST_F(UndoUnderAttack, FollowsALinkOnlyToTheRecordedInode) {
  fs::create_symlink("/etc/passwd", "/trees/t/link");
  writeFile(kLog, kHeader + kDate + ">/trees/t/link:1:1" + kIds);
  EXPECT_EQ(undo().err, kError + "/trees/t/link" + kStale + kBackedOut);
  EXPECT_EQ(ownerOf("/etc/passwd"), "0:0");
}

TEST_F(UndoUnderAttack, IsNotMisledByNamesThatReadLikeLines) {
  writeFile("/etc/shadow", "root:*:1:\n", 0600);
  const std::string shadow = "/etc/shadow" + idText("/etc/shadow") + ":500:100:0:0";
  fs::create_symlink("/etc/shadow", "/trees/t/x");
  const std::vector<std::string> names = {
      "/trees/t/a\n" + shadow + "\n>/trees/t/x" + idText("/etc/shadow") + ":500:100:0:0",
      "/trees/t/b\n=ann:0:0:1:1\n@staff:0:1\nz",
      "/trees/t/x" + idText("/etc/shadow") + ":500:100:0:0",
      "/trees/t/x\n!forged",
  };
  const RunResult commit = runInChild([&] {
    PrivateLog log;
    bool taken = log.openPrivateLog(false);
    for (const std::string& name : names) {
      taken = taken && log.beginRecord({9, 9}, {500, 100}, name, name == names[2]);
      log.finishRecord({10001, 10000});
    }
    return taken && log.close() ? 0 : 1;
  });
  ASSERT_EQ(commit.status, 0) << commit;
  const std::string accounts = readFile(paths::kPasswd) + readFile(paths::kGroup);
  const RunResult run = undo();
  EXPECT_TRUE(run.err.ends_with("have been backed out.\n")) << run.err;
  EXPECT_TRUE(contains(run.err, kError + "/etc/shadow" + kStale)) << run.err;
  EXPECT_FALSE(contains(run.err, "forged")) << run.err;
  EXPECT_EQ(ownerOf("/etc/shadow"), "0:0");
  EXPECT_EQ(readFile(paths::kPasswd) + readFile(paths::kGroup), accounts);
  EXPECT_FALSE(contains(readFile(kLog), "\n="));  // account lines are marked
}

TEST_F(UndoUnderAttack, ADateInANameDoesNotBeginTheSection) {
  const std::string forged = "/trees/t/x\n" + kDate + "y:1:1";
  const std::string early = converted("/trees/t/early");
  const std::string before = kHeader + "!Mon\n";
  const std::string late = converted("/trees/t/late");
  writeFile(kLog, before + forged + kIds + early + kDate + late);
  const UniqueFd log(open(kLog.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(LineFeedRanges().add(log.get(), before.size(), forged.size()));
  EXPECT_EQ(undo().err, kBackedOut);
  EXPECT_EQ(ownerOf("/trees/t/early"), "10001:10000");
  EXPECT_EQ(readFile(kLog),
            before + forged + kIds + early + "#" + kDate.substr(1) + "#" + late.substr(1));
}

TEST_F(UndoUnderAttack, ANameWithAColonCannotStopTheUndo) {
  addSetting("idshift.preserve.execution.bits = true");
  writeFile(kLog, kHeader + kDate + "/trees/t/a:b:1:1" + kIds);
  EXPECT_EQ(undo().err, kError + "/trees/t/a" + kMissing + kBackedOut);
}

}  // namespace
