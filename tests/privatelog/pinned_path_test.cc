#include "privatelog/pinned_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;

struct stat statusOf(uid_t uid, mode_t mode) {
  struct stat status {};
  status.st_uid = uid;
  status.st_mode = mode;
  return status;
}

TEST(RootAlone, ChangesANameInADirectory) {
  const struct {
    uid_t directoryOwner;
    mode_t directoryMode;
    uid_t entryOwner;
    mode_t entryMode;
    bool rootAlone;
  } kRows[] = {
      {0, 0755, 7, S_IFREG | 0777, true},    {7, 0755, 0, S_IFREG | 0644, false},
      {0, 0775, 0, S_IFREG | 0644, false},   {0, 0757, 0, S_IFDIR | 0755, false},
      {0, 01777, 0, S_IFDIR | 0755, true},   {0, 01777, 7, S_IFDIR | 0755, false},
      {0, 01777, 0, S_IFDIR | 01777, false}, {0, 01777, 0, S_IFDIR | 0775, false},
      {0, 01777, 0, S_IFREG | 0600, false},  {0, 01777, 0, S_IFLNK | 0777, false},
      {7, 01777, 0, S_IFDIR | 0755, false},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(rootAloneChanges(statusOf(row.directoryOwner, row.directoryMode),
                               statusOf(row.entryOwner, row.entryMode)),
              row.rootAlone)
        << row.directoryOwner << " " << std::oct << row.directoryMode << " " << row.entryOwner
        << " " << row.entryMode;
}

using PinPath = SandboxTest;

TEST_F(PinPath, FindsWhatTheKernelFinds) {
  fs::create_directories("/trees/a/b");
  writeFile("/trees/a/b/f", "");
  fs::create_symlink("b/f", "/trees/a/relative");
  fs::create_symlink("/trees/a", "/trees/absolute");
  fs::create_symlink("../a/./b//f", "/trees/a/winding");
  fs::create_symlink("none", "/trees/a/dangling");
  fs::create_symlink("loop", "/trees/loop");
  ASSERT_EQ(chdir("/trees/a"), 0);
  for (const char* path : {"/",
                           "/trees/a",
                           "/trees/a/",
                           "//trees//a/b/f",
                           "/trees/a/relative",
                           "/trees/absolute",
                           "/trees/absolute/",
                           "/trees/absolute/b/f",
                           "/trees/absolute/winding",
                           "/trees/a/dangling",
                           "/trees/a/dangling/",
                           "/trees/loop",
                           "/trees/loop/x",
                           "/trees/a/b/f/",
                           "/trees/a/b/f/x",
                           "/trees/none/x",
                           "/trees/../trees/a/b/f",
                           "",
                           "b/f",
                           "../a",
                           "/proc/self/exe"}) {
    for (const bool follow : {false, true}) {
      struct stat expected {};
      const int rc = follow ? stat(path, &expected) : lstat(path, &expected);
      const int error = rc == 0 ? 0 : errno;
      const PinnedPath pinned =
          pinPath(path, follow ? LastLink::Follow : LastLink::Keep, PlantedLinks::Follow);
      EXPECT_EQ(pinned.error, error) << path << " " << follow;
      EXPECT_EQ(pinned.status.st_ino, expected.st_ino) << path << " " << follow;
      EXPECT_EQ(static_cast<bool>(pinned.object), rc == 0) << path << " " << follow;
    }
  }
}

TEST_F(PinPath, JudgesEveryDirectoryOnTheWayThroughLinks) {
  fs::create_directories("/trees/safe/in");
  fs::create_directories("/trees/ann/in");
  ASSERT_EQ(lchown("/trees/ann", 500, 100), 0);
  for (const char* file : {"/trees/safe/in/f", "/trees/ann/in/f"})
    writeFile(file, "");
  fs::create_symlink("/trees/safe/in", "/trees/ann/to-safe");
  fs::create_symlink("/trees/ann/in", "/trees/safe/to-ann");
  fs::create_symlink("in", "/trees/safe/to-in");
  const struct {
    const char* path;
    bool rootAlone;
  } kRows[] = {{"/trees/safe/in/f", true},      {"/trees/ann/in/f", false},
               {"/trees/ann/to-safe/f", false}, {"/trees/safe/to-ann/f", false},
               {"/trees/safe/to-in/f", true},   {"/trees/safe/to-ann", true}};
  for (const auto& row : kRows)
    EXPECT_EQ(pinPath(row.path, LastLink::Keep, PlantedLinks::Follow).rootAlone, row.rootAlone)
        << row.path;
}

}  // namespace
