// Whole runs that look and that convert: what is printed, what is changed, what the log holds.
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "services/paths.h"
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

std::string owner(const EntryState& entry) {
  return std::to_string(entry.uid) + ":" + std::to_string(entry.gid);
}

}  // namespace

class Convert : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    basicTree(kTree);
  }
};

TEST_F(Convert, DryRunPrintsTheTablesAndTouchesNothing) {
  const TreeSnapshot etc = takeSnapshot("/etc"), tree = takeSnapshot(kTree);
  RunResult result = idshift({"/nowhere"});  // it does not even look at the files
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
  result = idshift({"-V", kTree});
  EXPECT_EQ(countOf(result.err, "checking /trees/t/"), tree.entries.size() - 1);
  EXPECT_EQ(countOf(result.err, "changed ownership of "), 14u);  // every name of a hard link
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
  result = idshift({"-c", "-F", kTree});
  EXPECT_TRUE(contains(result.out, "chown /trees/t/bob/mixed [501/100] -> [50501/10000]\n"));
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
}

TEST_F(Convert, CommitConvertsAndLogsEveryKindOfEntryOnce) {
  // But for the owners, and those of the top and of root's entries, the tree is the same. Each name
  // of a changed entry has its line, one name of each inode that with the owners.
  TreeSnapshot wanted = takeSnapshot(kTree);
  std::multiset<std::string> records, links;
  for (auto& [name, entry] : wanted.entries) {
    const auto converted = kConverted.find(owner(entry));
    if (converted == kConverted.end())
      continue;
    const std::string inode = std::to_string(entry.dev) + ":" + std::to_string(entry.ino);
    records.insert(inode + ":" + owner(entry) + ":" + converted->second);
    links.insert(std::string("/trees/t/").append(name).append(":").append(inode));
    char colon = 0;
    std::istringstream(converted->second) >> entry.uid >> colon >> entry.gid;
  }
  const RunResult result = idshift({"-c", kTree});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, std::to_string(links.size()) + " file(s) changed\n");
  EXPECT_TRUE(sameTree(wanted, takeSnapshot(kTree)));

  const std::string log = readFile(paths::kPrivateLog);
  EXPECT_TRUE(log.starts_with("domain:corp\n!"));
  EXPECT_EQ(countOf(log, "\n"), links.size() + 2);
  for (const std::string& link : links)
    EXPECT_EQ(countOf(log, "\n" + link + ":") + countOf(log, "\n+" + link + "\n"), 1u) << link;
  for (const std::string& record : records)
    EXPECT_EQ(countOf(log, ":" + record + "\n"), 1u) << record;

  // Further commits change what is new alone, and write behind the log.
  const TreeSnapshot etc = takeSnapshot("/etc");
  EXPECT_EQ(idshift({"-c", kTree}).out, "0 file(s) changed\n");
  EXPECT_TRUE(sameTree(wanted, takeSnapshot(kTree)));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
  ASSERT_EQ(shell("cd /trees/t; : > new; chown 500:100 new; ln bob/file bob/again").status, 0);
  EXPECT_EQ(idshift({"-c", kTree}).out, "2 file(s) changed\n");
  EXPECT_EQ(ownerOf("/trees/t/new"), "10001:10000");
  const std::string longer = readFile(paths::kPrivateLog);
  ASSERT_TRUE(longer.starts_with(log + "!"));
  EXPECT_TRUE(contains(longer, "\n+/trees/t/bob/again:")) << longer;
}

TEST_F(Convert, UndoAfterCommitAllIsTheIdentity) {
  addSetting("idshift.preserve.execution.bits = true");
  modesTree("/trees/t/modes");
  loopsTree("/trees/t/loops");
  const TreeSnapshot tree = takeSnapshot(kTree), etc = takeSnapshot("/etc");

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

  result = shell(binaryPath("idshift") + " -r /dev/stdout | cat");
  EXPECT_EQ(linesOf(result.out).at(0), "idshift report - domain corp");
  for (const char* line : {"\n501         50501       101         50101       /trees/t/bob/pipe\n",
                           "\nGroup Update(bobs) gid (101) changed to (50101)\n",
                           "\nPasswd Update(ann) uid/gid (500,100) changed to (10001,10000)\n"})
    EXPECT_TRUE(contains(result.out, line)) << line << result;

  result = idshift({"-U"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_TRUE(sameTree(tree, takeSnapshot(kTree)));
  for (const char* file : {"passwd", "group"}) {
    EXPECT_EQ(takeSnapshot("/etc").at(file).contents, etc.at(file).contents);
    EXPECT_EQ(takeSnapshot("/etc").at(file).mode, etc.at(file).mode);
  }
  EXPECT_EQ(idshift({"-r", "-"}).out, "idshift report - domain corp\n");
}
