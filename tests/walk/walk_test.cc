// Walks of a tree that nobody else changes.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "idmap/id_maps.h"
#include "idmap/new_ids.h"
#include "tests/walk/walk_fixture.h"
#include "walk/visited.h"

namespace {

TEST(NewOwner, Rows) {
  uidMap = {{500, 10500}, {501, 501}, {502, 10502}, {503, 10503}, {4294967295, 7}};
  gidMap = {{100, 10100}, {101, 10101}, {102, 102}};
  userLocalGid = {{500, 100}, {502, 100}, {504, 100}};
  userZoneGid = {{500, 20100}, {503, 20103}, {504, 20104}};

  const struct {
    OwnerIds onDisk;
    std::optional<OwnerIds> changed;
  } rows[] = {
      {{500, 1}, OwnerIds{10500, 1}},
      {{1, 101}, OwnerIds{1, 10101}},
      {{500, 101}, OwnerIds{10500, 10101}},
      {{500, 100}, OwnerIds{10500, 20100}},  // the primary group decides, not gidMap
      {{502, 100}, OwnerIds{10502, 10100}},  // no primary group in the zone
      {{503, 100}, OwnerIds{10503, 10100}},  // no local primary group
      {{504, 100}, OwnerIds{504, 10100}},  // without a mapped uid the primary group does not count
      {{100, 500}, std::nullopt},          // uids are not looked up as gids
      {{4294967295, 101}, OwnerIds{7, 10101}},  // ids are unsigned
      {{501, 1}, std::nullopt},                 // mapped to the present ids
      {{501, 101}, OwnerIds{501, 10101}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(newIdsOfEntry(row.onDisk), row.changed) << row.onDisk.uid << ":" << row.onDisk.gid;
}

TEST(ExcludeList, HoldsDirectoriesWithASlashAtTheirEnd) {
  excludeList = {"/", "/proc/"};
  for (const char* path : {"/", "/proc", "/proc/"})
    EXPECT_TRUE(isExcluded(path)) << path;
  for (const char* path : {"", "/pro", "/proc/1", "proc"})
    EXPECT_FALSE(isExcluded(path)) << path;
}

TEST_F(WalkTest, FollowsLinksIntoEachDirectoryOnce) {
  // The tree belongs to ann, so every change goes through a pin.
  plant("/trees",
        {"d 500:100 t", "d 500:100 t/dir", "- 500:100 t/dir/file", "l 500:100 t/dir/up ..",
         "l 500:100 t/dir/here .", "l 500:100 t/to_dir dir", "l 500:100 t/to_dir_again ./dir",
         "l 500:100 t/to_file dir/file", "l 500:100 t/to_itself to_itself",
         "l 500:100 t/dangling not there", "d 0:0 outside", "d 501:101 outside/dir",
         "- 501:101 outside/dir/file", "l 500:100 t/out /trees/outside/dir", "d 500:100 t/zzz",
         "- 500:100 t/zzz/file"});
  options.follow = options.traceSkips = true;
  const RunResult result = walk();
  EXPECT_TRUE(result.out.ends_with(" /trees\n")) << result.out;
  for (const char* path : {"out", "zzz/file", "dangling", "to_itself"})
    EXPECT_EQ(ownerOf(std::string("/trees/t/") + path), "10500:20100") << path;
  for (const char* path : {"/trees/outside/dir", "/trees/outside/dir/file"})
    EXPECT_EQ(ownerOf(path), "10501:10101");
  EXPECT_TRUE(contains(result.err,
                       "Warning: skipping file /trees/t/dangling since it or a directory component "
                       "is no longer accessible.\n"));
  EXPECT_FALSE(contains(result.err, "can not stat"));
  // The links up, here, to_dir and to_dir_again lead to two directories. The walk has entered one
  // of them already: the top.
  EXPECT_EQ(countOf(result.err, "Skipping Already Visited Dir: "), 4u);
  for (const char* line : {"/trees/t/out:500:100:10500:20100", ">/trees/t/out:501:101:10501:10101"})
    EXPECT_EQ(records().count(line), 1u) << line;
}

TEST_F(WalkTest, StopsAtMountPointsOnlyWhenToldAndConvertsNothingTwice) {
  plant("/trees/t", {"d 0:0 mnt"});
  ASSERT_EQ(mount("none", "/trees/t/mnt", "tmpfs", 0, "uid=501,gid=101,mode=755"), 0);
  plant("/trees/t/mnt", {"- 501:101 file"});
  const auto expectOwners = [](const char* owner) {
    for (const char* path : {"/trees/t/mnt", "/trees/t/mnt/file"})
      EXPECT_EQ(ownerOf(path), owner) << path;
  };

  options.xdev = options.traceSkips = true;
  EXPECT_EQ(walk().err, "Skipping Directory cross-device: /trees/t/mnt\n");
  expectOwners("501:101");

  options.xdev = false;
  options.traceExtra = true;
  EXPECT_EQ(walk().err, "Crossing mount point: /trees/t/mnt\n");
  // Each entry is converted once, although the new id of one account is the old id of another.
  uidMap[10501] = 30501;
  append = true;
  const std::string skipping = "Skipping already changed file: /trees/t/mnt";
  EXPECT_EQ(walk().err, skipping + "\n" + skipping + "/file\n");
  expectOwners("10501:10101");
}

TEST_F(WalkTest, TellsWhatItCannotWalkAndGoesOn) {
  writeFile("/trees/file", "");
  ASSERT_EQ(mkdir("/trees/closed", 0700), 0);
  ASSERT_EQ(symlink("/trees/file", "/trees/link"), 0);
  const struct {
    const char *top = "", *err = "", *out = "166 0 /trees\n";
  } rows[] = {{"/proc", "", "0 0 /\n"},
              {"/trees/link", "Error: cannot opendir: /trees/link: Not a directory\n"},
              {"/none/t", "", "166 0 /\n"},
              {"/trees/closed", "Error: cannot opendir: /trees/closed: Permission denied\n"}};
  options.commit = false;
  for (const auto& row : rows) {
    const RunResult result = walk(row.top, {.uid = 500});
    EXPECT_EQ(result.err, row.err);
    EXPECT_EQ(result.out, row.out) << row.top;
  }

  plant("/trees/t", {"d 500:100 a", "- 500:100 a/file", "d311 0:0 unreadable",
                     "d644 0:0 unsearchable", "d 500:100 z", "- 500:100 z/file"});
  options.verbose = true;
  const RunResult result = walk("/trees/t", {.uid = 500});
  EXPECT_EQ(result.out, "0 0 /trees\n");
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
  const RunResult result = walk("/");
  EXPECT_TRUE(result.out.starts_with("0 ") && result.out.ends_with(" /\n")) << result.out;
  EXPECT_TRUE(contains(result.err, "/trees/t/ann found in exclude list. Skipping.\n"));
  EXPECT_EQ(ownerOf("/trees/t/ann"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/t/ann/dir"), "500:100");
  EXPECT_EQ(records().count("/trees/t/bob/file:501:101:10501:10101"), 1u);
}

}  // namespace
