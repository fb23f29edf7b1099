// Whole dry runs and commits: what they print, what they change, what the log holds.
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

// The owners of the entries of basicTree, as "uid:gid": before and after the commit.
const std::map<std::string, std::string> kConverted = {
    {"500:100", "10001:10000"},  // ann gets her ids of the zone, her primary group too
    {"501:101", "50501:50101"},  // bob and his group move to spare ids
    {"501:100", "50501:10000"},  // bob's file of another group
    {"502:100", "502:10000"},    // cid keeps the uid, the group changes
};

std::string owner(const EntryState& entry) {
  return std::to_string(entry.uid) + ":" + std::to_string(entry.gid);
}

using Convert = WholeRun;

}  // namespace

TEST_F(Convert, DryRunPrintsTheTablesAndTouchesNothing) {
  basicTree(kTree);
  const TreeSnapshot etc = takeSnapshot("/etc"), tree = takeSnapshot(kTree);
  const RunResult result = idshift({"/nowhere"});  // a dry run does not look at files
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
  // With -V a dry run walks the tree, lists each name of a hard link, and changes nothing.
  EXPECT_EQ(countOf(idshift({"-V", kTree}).err, "changed ownership of "), 14u);
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
}

TEST_F(Convert, CommitsLogEveryKindOfEntryOnceAndUndosAreTheWayBack) {
  basicTree(kTree);
  const TreeSnapshot tree = takeSnapshot(kTree), etc = takeSnapshot("/etc");
  // Only owners change; the top and entries of root keep theirs. Each name of a changed entry has a
  // line in the log; only the line of the first name has the owners.
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

  // Further commits only change new entries, and append to the log.
  EXPECT_EQ(idshift({"-c", kTree}).out, "0 file(s) changed\n");
  EXPECT_EQ(readFile(paths::kPrivateLog), log);
  ASSERT_EQ(shell("cd /trees/t; : > new; chown 500:100 new; ln bob/file bob/again").status, 0);
  EXPECT_EQ(idshift({"-C", kTree}).out, "2 file(s) changed\n");
  const std::string longer = readFile(paths::kPrivateLog);
  ASSERT_TRUE(longer.starts_with(log + "!"));
  EXPECT_TRUE(contains(longer, "\n+/trees/t/bob/again:")) << longer;

  // An undo backs out all commits of one second together.
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

// A commit of `top` in which a change of mode by descriptor, and `calls`, fail with `error`.
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

// The line of the record stays without its end, and the next record goes on in the same line.
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
  // The run would have synced this change; the sync fails.
  const RunResult alone = commitFailing("/trees/alone", EPERM, {SYS_chmod, SYS_syncfs});
  EXPECT_EQ(alone.status, 6);
  EXPECT_TRUE(
      alone.err.ends_with("Error: cannot bring private log file /etc/orvantadc/idshift.log and the "
                          "changes to the disk: Operation not permitted\n"))
      << alone;
}
