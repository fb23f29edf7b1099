// Whole runs that look and that convert: what is printed, what is changed, what the log holds.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "services/unique_fd.h"
#include "tests/e2e/whole_run.h"
#include "tests/support/std_trees.h"

namespace {

constexpr const char* kTree = "/trees/t";

// What the sample's accounts become, in the entries of basicTree: "uid:gid" before and after.
const std::map<std::string, std::string> kConverted = {
    {"500:100", "10001:10000"},  // ann, and the primary group that follows her
    {"501:101", "50501:50101"},  // bob and his group make room
    {"501:100", "50501:10000"},  // bob's file of another group
    {"502:100", "502:10000"},    // cid stays, the group moves
};

std::string colons(const std::string& path, const EntryState& entry) {
  return path + ":" + std::to_string(entry.dev) + ":" + std::to_string(entry.ino);
}

// The paths of the "checking PATH ..." lines: every entry in the order of the walk.
std::vector<std::string> walkOrder(const std::string& err) {
  const std::string head = "checking ", tail = " ...";
  std::vector<std::string> order;
  for (const std::string& line : linesOf(err))
    if (line.starts_with(head) && line.ends_with(tail))
      order.push_back(line.substr(head.size(), line.size() - head.size() - tail.size()));
  return order;
}

// The lines that the log must gain when `before` is walked in `order`.
std::vector<std::string> expectedRecords(const TreeSnapshot& before,
                                         const std::vector<std::string>& order) {
  std::vector<std::string> records;
  std::set<ino_t> recorded;
  for (const std::string& path : order) {
    const EntryState& entry = before.at(path.substr(std::string(kTree).size() + 1));
    const std::string old = std::to_string(entry.uid) + ":" + std::to_string(entry.gid);
    const auto converted = kConverted.find(old);
    if (converted == kConverted.end())
      continue;
    if (recorded.insert(entry.ino).second)
      records.push_back(colons(path, entry) + ":" + old + ":" + converted->second);
    else
      records.push_back("+" + colons(path, entry));
  }
  return records;
}

// Whether a directory of the tree is opened while `run` runs.
bool opensDirectories(const std::function<void()>& run) {
  const UniqueFd watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  for (const char* directory : {kTree, "/trees/t/ann", "/trees/t/bob"})
    EXPECT_GE(::inotify_add_watch(watch.get(), directory, IN_OPEN), 0);
  run();
  char events[4096];
  return ::read(watch.get(), events, sizeof events) > 0;
}

}  // namespace

class Convert : public WholeRun {
 protected:
  void SetUp() override {
    WholeRun::SetUp();
    if (!IsSkipped())
      basicTree(kTree);
  }
};

TEST_F(Convert, DryRunPrintsTheTablesAndTouchesNothing) {
  const TreeSnapshot etc = takeSnapshot("/etc"), tree = takeSnapshot(kTree);
  RunResult result;
  EXPECT_FALSE(opensDirectories([&] { result = idshift({kTree}); }));
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
  // With -V it walks, and still only looks.
  EXPECT_TRUE(opensDirectories([&] { result = idshift({"-V", kTree}); }));
  EXPECT_EQ(walkOrder(result.err).size(), tree.entries.size() - 1);
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
}

TEST_F(Convert, CommitConvertsEveryKindOfEntryAndLogsItInWalkOrder) {
  const TreeSnapshot before = takeSnapshot(kTree);
  const RunResult result = idshift({"-c", "-V", kTree});
  EXPECT_EQ(result.status, 0) << result;

  const std::vector<std::string> expected = expectedRecords(before, walkOrder(result.err));
  std::vector<std::string> log = linesOf(readFile(paths::kPrivateLog));
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[0], "domain:corp");
  EXPECT_EQ(log[1].substr(0, 1), "!");
  log.erase(log.begin(), log.begin() + 2);
  EXPECT_EQ(log, expected);
  EXPECT_EQ(lastLine(result.out), std::to_string(expected.size()) + " file(s) changed");

  // But for the owners, and those of the top and of root's entries, the tree is the same.
  TreeSnapshot wanted = before;
  for (auto& [path, entry] : wanted.entries) {
    const auto found = kConverted.find(std::to_string(entry.uid) + ":" + std::to_string(entry.gid));
    if (found == kConverted.end())
      continue;
    entry.uid = static_cast<uid_t>(std::stoul(found->second));
    entry.gid = static_cast<gid_t>(std::stoul(found->second.substr(found->second.find(':') + 1)));
  }
  EXPECT_TRUE(sameTree(wanted, takeSnapshot(kTree)));
}

TEST_F(Convert, FurtherCommitsChangeWhatIsNewAlone) {
  ASSERT_EQ(idshift({"-c", kTree}).status, 0);
  const TreeSnapshot tree = takeSnapshot(kTree), etc = takeSnapshot("/etc");

  RunResult result = idshift({"-c", kTree});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(lastLine(result.out), "0 file(s) changed");
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));

  const std::string logBefore = readFile(paths::kPrivateLog);
  writeFile("/trees/t/ann/new", "");
  ASSERT_EQ(::chown("/trees/t/ann/new", 500, 100), 0);
  ASSERT_EQ(::link("/trees/t/bob/file", "/trees/t/bob/another name"), 0);
  TreeSnapshot wanted = takeSnapshot(kTree);
  result = idshift({"-c", kTree});
  EXPECT_EQ(lastLine(result.out), "2 file(s) changed");
  wanted.entries["ann/new"].uid = 10001;
  wanted.entries["ann/new"].gid = 10000;
  EXPECT_TRUE(sameTree(wanted, takeSnapshot(kTree)));

  const std::string log = readFile(paths::kPrivateLog);
  ASSERT_TRUE(log.starts_with(logBefore));
  const std::vector<std::string> added = linesOf(log.substr(logBefore.size()));
  ASSERT_EQ(added.size(), 3u);
  EXPECT_EQ(added[0].substr(0, 1), "!");
  EXPECT_EQ((std::set<std::string>{added[1], added[2]}),
            (std::set<std::string>{
                colons("/trees/t/ann/new", wanted.at("ann/new")) + ":500:100:10001:10000",
                "+" + colons("/trees/t/bob/another name", wanted.at("bob/file"))}));
}

TEST_F(Convert, UndoAfterCommitAllIsTheIdentity) {
  addSetting("idshift.preserve.execution.bits = true");
  modesTree("/trees/t/modes");
  loopsTree("/trees/t/loops");
  const TreeSnapshot tree = takeSnapshot(kTree);
  const std::string passwd = readFile(paths::kPasswd), group = readFile(paths::kGroup);
  struct stat passwdBefore {
  }, passwdAfter{};
  ASSERT_EQ(::stat(paths::kPasswd, &passwdBefore), 0);

  RunResult result = idshift({"-C", "-f", kTree});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(readFile(paths::kPasswd),
            "root:x:0:0:root:/root:/bin/sh\n"
            "ann:x:10001:10000:Ann,,,:/home/ann:/bin/sh\n"
            "bob:x:50501:50101::/home/bob:/bin/sh\n"
            "cid:x:502:10000::/home/cid:/bin/sh\n");
  EXPECT_EQ(readFile(paths::kGroup), "root:x:0:\nusers:x:10000:ann,cid\nbobs:x:50101:\nlp:x:7:\n");
  for (const auto& [path, entry] : takeSnapshot(kTree).entries)
    EXPECT_FALSE(entry.uid == 500 || entry.uid == 501 || entry.gid == 100 || entry.gid == 101)
        << path << ": " << entry;

  result = idshift({"-r", "-"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(linesOf(result.out).at(0), "idshift report - domain corp");
  for (const char* line : {"\n501         50501       101         50101       /trees/t/bob/pipe\n",
                           "\nGroup Update(bobs) gid (101) changed to (50101)\n",
                           "\nPasswd Update(ann) uid/gid (500,100) changed to (10001,10000)\n"})
    EXPECT_NE(result.out.find(line), std::string::npos) << line << result;

  result = idshift({"-U"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_EQ(readFile(paths::kPasswd), passwd);
  EXPECT_EQ(readFile(paths::kGroup), group);
  ASSERT_EQ(::stat(paths::kPasswd, &passwdAfter), 0);
  EXPECT_EQ(passwdAfter.st_mode, passwdBefore.st_mode);
  EXPECT_EQ(idshift({"-r", "-"}).out, "idshift report - domain corp\n");
}
