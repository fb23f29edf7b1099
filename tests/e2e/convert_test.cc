// Whole runs that look and that convert: what is printed, what is changed, what the log holds.
#include <sys/syscall.h>

#include <cerrno>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

namespace {

constexpr const char* kTree = "/trees/t";

// What the sample's accounts become, in the entries of basicTree: "uid:gid" before and after.
const std::map<std::string, std::string> kConverted = {
    {"500:100", "10001:10000"},  // ann, and the primary group that follows her
    {"501:101", "50501:50101"},  // bob and his group make room
    {"501:100", "50501:10000"},  // bob's file of another group
    {"502:100", "502:10000"},    // cid stays, the group moves
};

std::string owner(const EntryState& entry) {
  return std::to_string(entry.uid) + ":" + std::to_string(entry.gid);
}

using Convert = WholeRun;

}  // namespace

TEST_F(Convert, DryRunPrintsTheTablesAndTouchesNothing) {
  basicTree(kTree);
  const TreeSnapshot etc = takeSnapshot("/etc"), tree = takeSnapshot(kTree);
  const RunResult result = idshift({"/nowhere"});  // it does not even look at the files
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "2 user-id conflicts were found.\n"
            "Local UID(Name/Map)             Zone UID(Name)          Resolution      ID Map\n"
            "------------------------------  ----------------------  --------------  ------\n"
            "500(ann)                        10001(ann)              Use zone ID     10001   \n"
            "501(bob)                        501(dora)               Assign new ID   50501   \n"
            "\n"
            "2 group-id conflicts were found.\n"
            "Local GID(Name/Map)             Zone GID(Name)          Resolution      ID Map\n"
            "------------------------------  ----------------------  --------------  ------\n"
            "100(users)                      10000(users)            Use zone ID     10000   \n"
            "101(bobs)                       101(domad)              Assign new ID   50101   \n"
            "\n");
  // With -V it walks, and still only looks, also at every name of a hard link.
  EXPECT_EQ(countOf(idshift({"-V", kTree}).err, "changed ownership of "), 14u);
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
}

TEST_F(Convert, CommitsLogEveryKindOfEntryOnceAndUndosAreTheWayBack) {
  basicTree(kTree);
  const TreeSnapshot tree = takeSnapshot(kTree), etc = takeSnapshot("/etc");
  // But for the owners, and those of the top and of root's entries, the tree is the same. Each name
  // of a changed entry has its line, the first name of each inode one with the owners.
  TreeSnapshot wanted = tree;
  std::map<std::string, std::string> lines;
  std::set<ino_t> inodes;
  for (auto& [name, entry] : wanted.entries) {
    const auto converted = kConverted.find(owner(entry));
    if (converted == kConverted.end())
      continue;
    inodes.insert(entry.ino);
    lines["/trees/t/" + name + ":" + std::to_string(entry.dev) + ":" + std::to_string(entry.ino)] =
        owner(entry) + ":" + converted->second;
    char colon = 0;
    std::istringstream(converted->second) >> entry.uid >> colon >> entry.gid;
  }
  const RunResult result = idshift({"-c", kTree});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, std::to_string(lines.size()) + " file(s) changed\n");
  EXPECT_TRUE(sameTree(wanted, takeSnapshot(kTree)));

  const std::string log = readFile(paths::kPrivateLog);
  EXPECT_TRUE(log.starts_with("domain:corp\n!"));
  EXPECT_EQ(countOf(log, "\n"), lines.size() + 2);
  EXPECT_EQ(countOf(log, "\n+"), lines.size() - inodes.size());
  for (const auto& [link, owners] : lines) {
    const auto changeLine = std::string("\n").append(link).append(":").append(owners).append("\n");
    const auto linkLine = std::string("\n+").append(link).append("\n");
    EXPECT_EQ(countOf(log, changeLine) + countOf(log, linkLine), 1u) << changeLine;
  }

  // Further commits change what is new alone, and write behind the log.
  EXPECT_EQ(idshift({"-c", kTree}).out, "0 file(s) changed\n");
  EXPECT_EQ(readFile(paths::kPrivateLog), log);
  ASSERT_EQ(shell("cd /trees/t; : > new; chown 500:100 new; ln bob/file bob/again").status, 0);
  EXPECT_EQ(idshift({"-C", kTree}).out, "2 file(s) changed\n");
  const std::string longer = readFile(paths::kPrivateLog);
  ASSERT_TRUE(longer.starts_with(log + "!"));
  EXPECT_TRUE(contains(longer, "\n+/trees/t/bob/again:")) << longer;

  // Commits of one second are undone together.
  EXPECT_TRUE(idshift({"-U"}).status == 0 && idshift({"-U"}).status == 0);
  for (const char* file : {"passwd", "group"}) {
    EXPECT_EQ(takeSnapshot("/etc").at(file).contents, etc.at(file).contents);
    EXPECT_EQ(takeSnapshot("/etc").at(file).mode, etc.at(file).mode);
  }
  ASSERT_EQ(shell("rm /trees/t/new /trees/t/bob/again").status, 0);
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_EQ(idshift({"-r", "-"}).out, "idshift report - domain corp\n");
}

// ---- set-id bits

// A run over `top` in which a change of mode by descriptor, and these calls, fail.
static RunResult commitFailing(const std::string& top, int error, std::set<long> calls = {}) {
  calls.insert(452);  // fchmodat2, which the C library does not know yet
  return runTraced({binaryPath("idshift"), "-c", top}, [&](const SystemCall& call) -> CallVerdict {
    const bool fails = error != 0 && calls.contains(call.number);
    return {fails ? CallVerdict::kFail : CallVerdict::kContinue, error};
  });
}

TEST_F(Convert, RestoresTheModeOnlyWhenTold) {
  const struct {
    const char* setting;
    mode_t mode;
    int byDescriptor;  // errno of a chmod by descriptor
  } rows[] = {{"; not told", 0755, 0},
              {"idshift.preserve.execution.bits = true", 06755, 0},
              {"; an old kernel", 06755, ENOSYS},
              {"; an old filter", 06755, EPERM}};
  for (const auto& row : rows) {
    const std::string top = std::string("/trees/") + row.setting;
    plant(top, {"-6755 501:101 file"});
    addSetting(row.setting);
    EXPECT_EQ(commitFailing(top, row.byDescriptor).err, "");
    EXPECT_EQ(ownerOf(top + "/file"), "50501:50101");
    EXPECT_EQ(takeSnapshot(top).at("file").mode, row.mode) << row.setting;
  }
}

// The record stays open, and the next one continues on its line.
TEST_F(Convert, LeavesTheLineOpenWhenTheModeIsNotRestored) {
  plant("/trees/t", {"d2755 500:100 dir", "- 501:101 dir/file"});
  plant("/trees/alone", {"d2755 500:100 dir"});
  addSetting("idshift.preserve.execution.bits = true");
  const RunResult result = commitFailing("/trees/t", EPERM, {SYS_chmod});
  EXPECT_EQ(result.err,
            "Failed to set the execution bits of dir back by chmod(): errno=1 (Operation not "
            "permitted)\n");
  EXPECT_EQ(result.out, "1 file(s) changed\n");
  const std::regex joined(
      R"(\n/trees/t/dir(:\d+){2}:500:100/trees/t/dir/file(:\d+){2}:501:101:50501:50101\n)");
  EXPECT_TRUE(std::regex_search(readFile(paths::kPrivateLog), joined));
  // What was changed would have been synced.
  const RunResult alone = commitFailing("/trees/alone", EPERM, {SYS_chmod, SYS_syncfs});
  EXPECT_EQ(alone.status, 6);
  EXPECT_TRUE(
      alone.err.ends_with("Error: cannot bring private log file /etc/orvantadc/idshift.log and the "
                          "changes to the disk: Operation not permitted\n"))
      << alone;
}
