// Which file systems the walk asks whether they are remote, and what it does with the answers.
//
// This program defines statfs itself. Its definition comes before the one of the C library, so no
// remote mount is needed.
#include "walk/mounts.h"

#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <map>

#include "services/path_text.h"
#include "tests/walk/walk_fixture.h"

namespace {

constexpr uint64_t kNfs = 0x6969;
constexpr uint64_t kAutofs = 0x187;

std::map<std::string, uint64_t> types;  // by the last component of a path
std::string trigger;                    // a question about this name mounts something on it

}  // namespace

extern "C" int statfs(const char* file, struct statfs* buf) noexcept {
  const std::string name(baseNameView(file));
  if (name == trigger && mount("none", file, "tmpfs", 0, nullptr) != 0)
    return -1;
  if (syscall(SYS_statfs, file, buf) != 0)
    return -1;
  if (const auto type = types.find(name); type != types.end())
    buf->f_type = static_cast<decltype(buf->f_type)>(type->second);
  return 0;
}

namespace {

TEST(RemoteType, IsComparedAt64Bits) {
  EXPECT_TRUE(isRemoteType(0x6969));
  EXPECT_TRUE(isRemoteType(0xFFFFFFFFFF534D42));
  EXPECT_FALSE(isRemoteType(0xFF534D42));
  EXPECT_FALSE(isRemoteType(0xFFFFFFFF00006969));
}

TEST_F(WalkTest, AsksAboutEveryDirectoryOfAnAutomounter) {
  plant("/trees", {"d 0:0 dir", "d 0:0 dir2"});
  ASSERT_EQ(chdir("/trees"), 0);
  EntryProbe probe(true, false);
  struct stat before = {};
  EntryStatus status;
  const auto look = [&](const char* name) { return probe.look(name, status); };
  // The automounter shows by the mount that it makes.
  trigger = "dir";
  ASSERT_EQ(lstat("dir", &before), 0);
  EXPECT_EQ(look("dir"), EntryLook::Take);
  EXPECT_NE(status.id.device, before.st_dev);  // the record is that of the mounted directory
  trigger.clear();
  EXPECT_EQ(look("dir2"), EntryLook::Take);
  types = {{"dir2", kNfs}, {"dir", kNfs}};
  EXPECT_EQ(look("dir2"), EntryLook::Remote);
  EXPECT_EQ(look("dir"), EntryLook::Take);  // the answer "local" is remembered

  // The automounter shows by the type of its file system.
  probe = EntryProbe(true, false);
  types["dir2"] = kAutofs;
  EXPECT_EQ(look("dir2"), EntryLook::Take);
  types["dir2"] = kNfs;
  EXPECT_EQ(look("dir2"), EntryLook::Remote);
}

TEST_F(WalkTest, LeavesRemoteEntriesOut) {
  types = {{"dir", kNfs}, {"l", kNfs}};
  plant("/trees/t", {"l 500:100 l /trees", "d 500:100 dir", "- 500:100 dir/file"});
  EXPECT_EQ(walk().err, "");
  for (const char* path : {"/trees/t/l", "/trees/t/dir", "/trees/t/dir/file"})
    EXPECT_EQ(ownerOf(path), "500:100");
  options.traceSkips = options.traceExtra = true;
  const RunResult result = walk();
  for (const char* path : {"/trees/t/l\n", "/trees/t/dir\n"})
    EXPECT_TRUE(contains(result.err, std::string("Skip dealing with NFS: Path=") + path));

  types = {{"t", kNfs}};
  EXPECT_EQ(walk().err, "Skip dealing with NFS: Path=/trees/t\n");
}

TEST_F(WalkTest, HintsAtSquashedRootUnderNfs) {
  types = {{"dir", kNfs}};
  plant("/trees/t", {"d 500:100 dir", "- 500:100 dir/file"});
  ASSERT_EQ(mount("/trees/t", "/trees/t", nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, "/trees/t", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  options.nfs = true;
  // The file in it is not converted.
  EXPECT_EQ(walk().err,
            "Error: cannot chown: /trees/t/dir: Read-only file system\n"
            "Please check if root_squash or all_squash has been set on NFS server.\n");
  types.clear();
  EXPECT_FALSE(contains(walk().err, "root_squash"));
}

}  // namespace
