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
const std::string kIds = ":500:100:10001:10000\n";
const std::string kError = "Error: cannot chown: ";
const std::string kStale = ": Stale file handle\n";
const std::string kMissing = ": No such file or directory\n";

void setOwner(const std::string& path, uid_t uid, gid_t gid) {
  ASSERT_EQ(lchown(path.c_str(), uid, gid), 0) << path;
}

// The fixture reads logs literally, with hardened off, unless a test says otherwise.
class UndoTest : public LogWorld {
 protected:
  void arrange() override {
    addSetting("idshift.hardened = false");
    setPasswd("root:x:0:0::/root:/bin/sh\nann:x:10001:10000::/home/ann:/bin/sh\n");
    setGroup("root:x:0:\nstaff:x:10000:\n");
    fs::create_directories("/trees/t");
    setOwner("/trees/t", 10001, 10000);  // so users can change what lies in it
  }

  // Makes a file as a commit leaves it for ann, and returns the line that records the change.
  static std::string converted(const std::string& path) {
    if (!exists(path))
      writeFile(path, "");
    setOwner(path, 10001, 10000);
    return path + idText(path) + kIds;
  }

  static std::string marked(const std::string& line) { return "#" + line.substr(1); }

  // Loads, opens and undoes as the program does. The result and the count are on standard output.
  static RunResult undo(const std::function<void()>& prepare = {}, bool pretend = false) {
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
      if (prepare)
        prepare();
      CommandOptions options;
      options.pretend = pretend;
      std::cout << (log.Undo(passwd, group, options) ? "done " : "stopped ");
      std::cout << log.changeCount << "\n";
      return 0;
    });
  }

  static RunResult undoOf(const std::string& section, const std::function<void()>& prepare = {}) {
    writeFile(kLog, kHeader + kDate + section);
    return undo(prepare);
  }
};

// ---- What an undo does with each kind of line

TEST_F(UndoTest, BacksOutTheNewestSectionLineByLine) {
  converted("/trees/t/target");
  converted("/trees/t/half");
  fs::create_symlink("/trees/t/target", "/trees/t/link");
  fs::create_symlink("/trees/t/none", "/trees/t/dangling");
  writeFile("/trees/t/undone", "");
  setOwner("/trees/t/undone", 500, 100);
  const struct {
    std::string line;
    bool isMarked = true;
    std::string words = {};
  } rows[] = {
      {"!Wed Nov 11 00:00:00 2026\n", false},
      {converted("/trees/t/early"), false},
      {"!Fri Nov 13 00:00:00 2026 and not a date of ours\n", false},
      {kDate},
      {converted("/trees/t/a")},
      {"+/trees/t/a2:1:1\n"},
      {"/trees/t/a:1:1:7:7\n", false},
      {converted("/trees/t/link")},
      {">/trees/t/link" + idText("/trees/t/target") + kIds},
      {">/trees/t/dangling:5:5" + kIds, true, kError + "/trees/t/dangling" + kMissing},
      {"/trees/t/half" + idText("/trees/t/half") + ":500:100:10001\n"},
      {"/trees/t/undone:1:1:500:100:10001\n", false},
      {"/top:1:1" + kIds, true, "Warning: skipping /top" + kMissing},
      {"/trees/t/gone:1:1" + kIds, true, kError + "/trees/t/gone" + kMissing},
      {"/trees/none/gone:1:1" + kIds, true, "Warning: skipping /trees/none/gone" + kMissing},
      {"#/trees/t/early:1:1" + kIds, false},
      {"@staff:100:10000\n"},
      {"=ann:500:100:10001:10000\n"},
      {"=bad:500\n"},
      {"@bad\n"},
      {"\n", false},
  };
  std::string text = kHeader;
  std::string after = kHeader;
  std::string words;
  for (const auto& row : rows) {
    text += row.line;
    after += row.isMarked ? marked(row.line) : row.line;
    words += row.words;
  }
  writeFile(kLog, text);
  const RunResult run = undo();
  EXPECT_EQ(readFile(kLog), after);
  EXPECT_EQ(run.out, "done 13\n");
  EXPECT_EQ(run.err, words + kBackedOut);
  for (const char* path : {"a", "link", "target", "half"})
    EXPECT_EQ(ownerOf(std::string("/trees/t/") + path), "500:100") << path;
  EXPECT_EQ(ownerOf("/trees/t/early"), "10001:10000");
  EXPECT_EQ(readFile(paths::kPasswd),
            "root:x:0:0::/root:/bin/sh\nann:x:500:100::/home/ann:/bin/sh\n");
  EXPECT_EQ(readFile(paths::kGroup), "root:x:0:\nstaff:x:100:\n");
}

TEST_F(UndoTest, PretendingUsesTheSectionUpAndChangesNothing) {
  writeFile(kLog, kHeader + kDate + converted("/trees/t/a") +
                      "/top:1:1:4294967295:0:7:7\n=ann:500:100:10001:10000\n");
  const std::string passwd = readFile(paths::kPasswd);
  const RunResult run = undo({}, true);
  EXPECT_EQ(run.out, "chown(/trees/t/a,500,100)\nchown(/top,4294967295,0)\ndone 3\n");
  EXPECT_EQ(run.err, kBackedOut);
  EXPECT_EQ(countOf(readFile(kLog), "\n#"), 4u);
  EXPECT_EQ(ownerOf("/trees/t/a"), "10001:10000");
  EXPECT_EQ(readFile(paths::kPasswd), passwd);
}

TEST_F(UndoTest, NeitherAnEmptyLineNorASignalUsesALineUp) {
  const std::string line = converted("/trees/t/a");
  writeFile(kLog, kHeader + "\n" + line);  // no date line, so no section
  EXPECT_EQ(undo().out, "done 0\n");
  EXPECT_EQ(readFile(kLog), kHeader + "\n" + line);
  const RunResult run = undoOf(line, [] {
    interrupt::install();
    raise(SIGTERM);
  });
  EXPECT_EQ(run.out + run.err, "stopped 0\n");
  EXPECT_EQ(readFile(kLog), kHeader + kDate + line);
}

// ---- Special mode bits

TEST_F(UndoTest, PutsSpecialBitsBackOnlyWhenTheSettingSaysSo) {
  for (const bool preserve : {false, true}) {
    if (preserve)
      addSetting("idshift.preserve.execution.bits = true");
    const std::string line = converted("/trees/t/s");
    ASSERT_EQ(chmod("/trees/t/s", 06755), 0);
    EXPECT_EQ(undoOf(line).out, "done 1\n");
    EXPECT_EQ(ownerOf("/trees/t/s"), "500:100");
    EXPECT_EQ(takeSnapshot("/trees/t").at("s").mode, preserve ? 06755u : 0755u);
  }
}

TEST_F(UndoTest, StopsWhenTheModeCannotBeReadOrPutBack) {
  addSetting("idshift.preserve.execution.bits = true");
  std::string lines = "/trees/t/gone:1:1" + kIds + converted("/trees/t/later");
  RunResult run = undoOf(lines);
  EXPECT_EQ(run.out, "stopped 0\n");
  EXPECT_EQ(run.err, "Failed to stat gone: No such file or directory\n");
  EXPECT_EQ(readFile(kLog), kHeader + kDate + lines);

  lines = converted("/trees/t/s");
  ASSERT_EQ(chmod("/trees/t/s", 01755), 0);
  run = undoOf(lines, [] {
    // Without this capability the owner of a file of another user can be changed, but not its mode.
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
  EXPECT_EQ(readFile(kLog), kHeader + kDate + lines);
}

// ---- A log of an older release, which has no index

class OldLog : public UndoTest {
 protected:
  void arrange() override {
    UndoTest::arrange();
    fs::remove(paths::kSettings);
    joinDomain("corp");
  }
};

TEST_F(OldLog, ADateInANameDoesNotBeginTheSection) {
  const std::string forged = "/trees/t/x\n" + kDate + "y:1:1";
  const std::string early = converted("/trees/t/early");
  const std::string before = kHeader + "!Mon\n";
  const std::string late = converted("/trees/t/late");
  writeFile(kLog, before + forged + kIds + early + kDate + late);
  rememberName(kLog, before.size(), forged.size());
  EXPECT_EQ(undo().err, kBackedOut);
  EXPECT_EQ(ownerOf("/trees/t/early"), "10001:10000");
  EXPECT_EQ(readFile(kLog), before + forged + kIds + early + marked(kDate) + marked(late));
}

}  // namespace
