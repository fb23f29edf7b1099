// What a walk does to a tree when nobody interferes.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "idmap/id_maps.h"
#include "services/interrupt.h"
#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/walk/walk_fixture.h"
#include "walk/visited.h"

namespace {

using Lines = std::vector<std::string>;

void goDown(int levels) {
  ASSERT_EQ(chdir("/trees/t"), 0);
  for (int level = 0; level < levels; ++level)
    ASSERT_EQ(chdir("d"), 0);
}

// ---- whole trees

TEST_F(WalkTest, ConvertsNothingTwice) {
  basicTree("/trees/t");
  ASSERT_EQ(chown("/trees/t", 500, 100), 0);
  uidMap[10501] = 30501;  // a chain: the new id of one account is the old id of another
  walk();
  EXPECT_EQ(ownerOf("/trees/t"), "500:100");  // the top stays
  const TreeSnapshot once = takeSnapshot("/trees/t");
  append = true;
  options.traceSkips = true;
  const WalkResult again = walk();
  EXPECT_TRUE(sameTree(once, takeSnapshot("/trees/t")));
  EXPECT_TRUE(contains(again.err, "Skipping already changed file: /trees/t/bob/file\n"));
}

// ---- links

TEST_F(WalkTest, FollowsLinksIntoEachDirectoryOnce) {
  loopsTree("/trees/t");
  plant("/trees/outside", {"d 501:101 dir", "- 501:101 dir/file"});
  plant("/trees/t", {"l 500:100 out /trees/outside/dir", "d 500:100 zzz", "- 500:100 zzz/file"});
  ASSERT_EQ(chown("/trees/t", 500, 100), 0);  // every change goes through a pin
  options.follow = true;
  options.traceSkips = true;
  const WalkResult result = walk();
  EXPECT_EQ(result.cwd, "/trees");
  EXPECT_EQ(ownerOf("/trees/t/out"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/outside/dir"), "10501:10101");
  EXPECT_EQ(ownerOf("/trees/outside/dir/file"), "10501:10101");
  EXPECT_EQ(ownerOf("/trees/t/zzz/file"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/t/dangling"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/t/to_itself"), "10500:20100");
  EXPECT_TRUE(contains(result.err,
                       "Warning: skipping file /trees/t/dangling since it or a directory component "
                       "is no longer accessible.\n"));
  EXPECT_FALSE(contains(result.err, "can not stat"));
  // up, here, to_dir, to_dir_again lead to two directories, of which the top was entered before.
  EXPECT_EQ(countOf(result.err, "Skipping Already Visited Dir: "), 4u);
  const Lines lines = records();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "/trees/t/out:500:100:10500:20100"), 1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), ">/trees/t/out:501:101:10501:10101"), 1);
}

// ---- borders

TEST_F(WalkTest, StopsAtMountPointsOnlyWhenTold) {
  plant("/trees/t", {"d 0:0 mnt"});
  ASSERT_EQ(mount("none", "/trees/t/mnt", "tmpfs", 0, "uid=501,gid=101,mode=755"), 0);
  plant("/trees/t/mnt", {"- 501:101 file"});

  options.xdev = true;
  options.traceSkips = true;
  EXPECT_EQ(walk().err, "Skipping Directory cross-device: /trees/t/mnt\n");
  EXPECT_EQ(ownerOf("/trees/t/mnt"), "501:101");
  EXPECT_EQ(ownerOf("/trees/t/mnt/file"), "501:101");

  options.xdev = false;
  options.traceExtra = true;
  EXPECT_EQ(walk().err, "Crossing mount point: /trees/t/mnt\n");
  EXPECT_EQ(ownerOf("/trees/t/mnt"), "10501:10101");
  EXPECT_EQ(ownerOf("/trees/t/mnt/file"), "10501:10101");
}

TEST_F(WalkTest, TellsWhyATopIsNotWalked) {
  writeFile("/trees/file", "");
  ASSERT_EQ(mkdir("/trees/closed", 0700), 0);
  ASSERT_EQ(symlink("/trees/file", "/trees/link"), 0);
  const struct {
    const char *top, *err, *cwd;
    int status = 166;
  } rows[] = {
      {"/proc", "", "/", 0},
      {"/trees/none", "Error: cannot opendir: /trees/none: No such file or directory\n", "/trees"},
      {"/trees/link", "Error: cannot opendir: /trees/link: Not a directory\n", "/trees"},
      {"/none/t", "", "/"},
      {"/trees/closed", "Error: cannot opendir: /trees/closed: Permission denied\n", "/trees"}};
  options.commit = false;
  childOptions.cwd = "/";
  childOptions.uid = 500;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.top);
    const WalkResult result = walk(row.top);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.err, row.err);
    EXPECT_EQ(result.cwd, row.cwd);
  }
  EXPECT_EQ(walk("").out, "thrown: basic_string::erase\n");
}

TEST_F(WalkTest, GoesOnAfterADirectoryThatCannotBeRead) {
  const TreeEntry entries[] = {
      {"a", 'd', 0755, 500, 100, ""},      {"a/file", '-', 0644, 500, 100, ""},
      {"unreadable", 'd', 0311, 0, 0, ""}, {"unsearchable", 'd', 0644, 0, 0, ""},
      {"z", 'd', 0755, 500, 100, ""},      {"z/file", '-', 0644, 500, 100, ""}};
  makeTree("/trees/t", entries);
  options.commit = false;
  options.verbose = true;
  childOptions.uid = 1000;
  const WalkResult result = walk();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(countOf(result.err, "changed ownership of "), 4u);
  EXPECT_TRUE(
      contains(result.err, "Error: cannot opendir: /trees/t/unreadable: Permission denied\n"));
  EXPECT_TRUE(contains(result.err, "Warning: skipping /trees/t/unsearchable: Permission denied\n"));
}

TEST_F(WalkTest, WalksTheRootWithoutDoubledSlashesAndExcludesExactPathsAlone) {
  basicTree("/trees/t");
  for (const char* folder : {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/dev", "/var",
                             "/trees/t/ann", "/trees/t/bo"})
    excludeList.push_back(std::string(folder) + "/");
  options.debug = true;
  const WalkResult result = walk("/");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.cwd, "/");
  EXPECT_TRUE(contains(result.err, "/trees/t/ann found in exclude list. Skipping.\n"));
  EXPECT_EQ(ownerOf("/trees/t/ann"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/t/ann/dir"), "500:100");
  const Lines lines = records();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "/trees/t/bob/file:501:101:10501:10101"), 1);
}

// ---- size and depth

// Only the deepest entries are changed: with every one, the paths in the log would come to
// gigabytes. The way back from a followed link is an absolute path, longer than chdir takes.
TEST_F(WalkTest, GoesSixtyThousandLevelsDownAndBackFromLinks) {
  constexpr int kLevels = 60000;
  deepTree("/trees/t", kLevels);
  goDown(kLevels);
  ASSERT_EQ(chown("leaf", 501, 0), 0);
  // Whichever the walk takes first, of two directories behind links one is entered after the other.
  for (const std::string name : {"x", "y"}) {
    ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
    ASSERT_EQ(symlink(name.c_str(), ("to_" + name).c_str()), 0);
    writeFile(name + "/file", "");
    ASSERT_EQ(chown((name + "/file").c_str(), 501, 0), 0);
  }
  uidMap = {{501, 10501}};
  gidMap.clear();
  options.follow = true;
  const WalkResult result = walk();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.changes, 3);
  EXPECT_EQ(result.cwd, "/trees");
  EXPECT_EQ(ownerOf("leaf"), "10501:0");
}

TEST_F(WalkTest, EndsBetweenTwoEntriesWhenInterrupted) {
  basicTree("/trees/t/a");
  basicTree("/trees/t/b");
  options.verbose = true;
  beforeWalk = [] { interrupt::install(); };
  // In the middle of a directory, whichever way it is read.
  for (const std::string name : {"a", "b"})
    at("checking /trees/t/" + name + "/bob ...", [] { raise(SIGINT); });
  const WalkResult result = walk();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.cwd, "/trees");
  EXPECT_TRUE(result.err.substr(result.err.rfind("checking")).ends_with("/bob\n")) << result.err;
  EXPECT_EQ(static_cast<size_t>(result.changes), records().size());
}

}  // namespace
