// What a walk does when others move things about while it runs, and when calls fail.
//
// Each test changes the world at the moment at which the walk prints a certain line; "checking ..."
// comes after the entry was looked at and before anything is done with it.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <iterator>

#include "tests/support/std_trees.h"
#include "tests/walk/walk_fixture.h"

#include <linux/auto_fs4.h>

namespace {

class Interference : public WalkTest {
 protected:
  void arrange() override {
    WalkTest::arrange();
    options.verbose = true;
  }

  // What the walk said beside the lines that announce each entry.
  static std::string complaints(const WalkResult& result) {
    std::string kept;
    for (const std::string& line : linesOf(result.err))
      if (!line.starts_with("checking ") && !line.starts_with("changed ownership of "))
        kept += line + "\n";
    return kept;
  }
};

// Answers chmod by descriptor with `byDescriptor`, and by name with `byName`; 0 lets it happen.
void failChmod(int byDescriptor, int byName) {
  const auto answer = [](int error) {
    return static_cast<uint32_t>(error == 0 ? SECCOMP_RET_ALLOW : SECCOMP_RET_ERRNO) |
           static_cast<uint32_t>(error);
  };
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 452, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, answer(byDescriptor)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_chmod, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, answer(byName)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {.len = std::size(program), .filter = program};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
    std::perror("seccomp");
}

// ---- exchanged entries

TEST_F(Interference, EntersOnlyTheDirectoryItLookedAt) {
  plant("/trees/t", {"d 500:100 dir", "d 500:100 dir2", "l 0:0 to_dir /trees/target"});
  // That another file system is mounted there excuses a directory, but not where a link leads.
  ASSERT_EQ(mkdir("/trees/mounted", 0755), 0);
  ASSERT_EQ(mount("none", "/trees/mounted", "tmpfs", 0, nullptr), 0);
  for (const char* other : {"/trees/outside", "/trees/mounted", "/trees/linked", "/trees/target"})
    plant(other, {"- 501:101 file"});
  ASSERT_EQ(chown("/trees/target", 501, 101), 0);
  options.follow = true;
  at("changed ownership of /trees/t/dir", [] {
    moveTo("/trees/t/dir", "/trees/moved");
    linkTo("/trees/linked", "/trees/t/dir");
  });
  at("checking /trees/t/dir2 ...", [] {
    moveTo("/trees/t/dir2", "/trees/moved2");
    moveTo("/trees/outside", "/trees/t/dir2");
  });
  at("changed ownership of /trees/t/to_dir", [] {  // the target, for the link is root's
    moveTo("/trees/t/to_dir", "/trees/old link");
    linkTo("/trees/mounted", "/trees/t/to_dir");
  });
  const std::string said = complaints(walk());
  for (const char* line :
       {"dir: Not a directory\n", "dir2: Stale file handle\n", "to_dir: Stale file handle\n"})
    EXPECT_TRUE(contains(said, std::string("Warning: skipping /trees/t/") + line));
  for (const char* other : {"/trees/linked", "/trees/t/dir2", "/trees/mounted"})
    EXPECT_EQ(ownerOf(std::string(other) + "/file"), "501:101");
}

// Serves the automounter's file system at /trees/auto, whose "dir" is bob's: mounts there once.
// Ends at once when that cannot be had.
void automount(int ready) {
  int requests[2];
  setpgid(0, 0);
  if (pipe2(requests, O_CLOEXEC) != 0)
    _exit(1);
  const std::string how = "minproto=5,maxproto=5,indirect,pgrp=" + std::to_string(getpgrp()) +
                          ",fd=" + std::to_string(requests[1]);
  if (mount("none", "/trees/auto", "autofs", 0, how.c_str()) != 0 ||
      mkdir("/trees/auto/dir", 0755) != 0 || chown("/trees/auto/dir", 501, 101) != 0)
    _exit(1);
  const int root = open("/trees/auto", O_RDONLY | O_CLOEXEC);
  autofs_v5_packet_union packet = {};
  if (write(ready, "", 1) != 1 || read(requests[0], &packet, sizeof packet) <= 0)
    _exit(1);
  if (mount("none", "/trees/auto/dir", "tmpfs", 0, "uid=501,gid=101,mode=755") == 0 &&
      mkdir("/trees/auto/dir/in", 0755) == 0 && chown("/trees/auto/dir/in", 501, 101) == 0)
    ioctl(root, AUTOFS_IOC_READY, packet.v5_packet.wait_queue_token);
  _exit(0);
}

// What the look does not mount, behind a link or not, the open does.
TEST_F(Interference, EntersWhatIsMountedMeanwhile) {
  plant("/trees/t", {"d 500:100 dir", "l 0:0 to_dir /trees/auto/dir"});
  at("changed ownership of /trees/t/dir", [] {
    if (mount("none", "/trees/t/dir", "tmpfs", 0, nullptr) != 0)
      std::perror("mount");
    plant("/trees/t/dir", {"- 501:101 file"});
  });
  ASSERT_EQ(mkdir("/trees/auto", 0755), 0);
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const pid_t automounter = fork();
  if (automounter == 0)
    automount(ready[1]);
  close(ready[1]);
  char byte = 0;
  if (read(ready[0], &byte, 1) != 1)
    GTEST_SKIP() << "no automounter can be had";
  options.nfs = options.follow = true;
  EXPECT_EQ(complaints(walk()), "");
  kill(automounter, SIGKILL);  // should nobody have asked it
  EXPECT_EQ(waitpid(automounter, nullptr, 0), automounter);
  EXPECT_EQ(ownerOf("/trees/t/dir/file"), "10501:10101");
  EXPECT_EQ(ownerOf("/trees/auto/dir/in"), "10501:10101");
}

TEST_F(Interference, ChangesOnlyTheInodeItLookedAt) {
  struct Row {
    const char* entry;
    std::string path;
    uid_t topOwner;
    const char* swapped;  // at "changed ownership of ..."
  };
  const Row rows[] = {{"- 500:100 file", "/trees/t/file", 1000, "/trees/t/file"},
                      {"l 0:0 link /trees/open/target", "/trees/t/link", 0, "/trees/open/target"}};
  options.follow = true;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    forgetActions();
    renewTrees();
    plant("/trees/t", {row.entry});
    plant("/trees/open", {"- 501:101 target"});
    plant("/trees/outside", {"- 0:0 victim"});
    ASSERT_EQ(chown("/trees/t", row.topOwner, 0), 0);
    at("changed ownership of " + row.path, [&] {
      moveTo(row.swapped, "/trees/moved");
      if (::link("/trees/outside/victim", row.swapped) != 0)
        std::perror("link");
    });
    EXPECT_EQ(complaints(walk()), "Error: cannot chown: " + row.path + ": Stale file handle\n");
    EXPECT_EQ(ownerOf("/trees/outside/victim"), "0:0");
    const std::vector<std::string> lines = records();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return std::count(line.begin(), line.end(), ':') == 2;  // without new ids
    }));
  }
}

// ---- the way back

// "b" is moved to a place whose other names are those of the level that was left.
TEST_F(Interference, LooksUpNoNameInAnotherPlace) {
  plant("/trees/t", {"d 500:100 a", "d 500:100 a/x", "- 500:100 a/x/file", "d 500:100 a/y",
                     "- 500:100 a/y/file", "d 500:100 b", "- 500:100 b/file", "d 500:100 c",
                     "- 500:100 c/file"});
  plant("/trees/outside", {"d 501:101 x", "- 501:101 x/file", "d 501:101 y", "- 501:101 y/file"});
  for (const char* first : {"x", "y"}) {
    const std::string from = std::string("/trees/t/a/") + first;
    at("checking " + from + "/file ...", [from] { moveTo(from.c_str(), "/trees/outside/moved"); });
  }
  const WalkResult result = walk();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.cwd, "/trees");
  const std::string other = exists("/trees/t/a/x") ? "/trees/t/a/x" : "/trees/t/a/y";
  EXPECT_EQ(complaints(result),
            "Warning: skipping /trees/t/a: Stale file handle\n"
            "Error: cannot opendir: " +
                other + ": No such file or directory\n");
  for (const char* name : {"x", "y"})
    EXPECT_EQ(ownerOf(std::string("/trees/outside/") + name + "/file"), "501:101");
  // The level above is where it was.
  EXPECT_EQ(ownerOf("/trees/t/b/file"), "10500:20100");
  EXPECT_EQ(ownerOf("/trees/t/c/file"), "10500:20100");
}

// ---- set-id bits

TEST_F(Interference, RestoresTheModeOnlyWhenTold) {
  const struct {
    const char* setting;
    int byDescriptor;  // errno of a chmod by descriptor
  } rows[] = {{"idshift.preserve.execution.bits = true", 0},
              {"; an old kernel", ENOSYS},
              {"; an old filter", EPERM}};
  options.verbose = false;
  const auto modeOf = [](const char* path) { return takeSnapshot("/trees/t").at(path).mode; };
  modesTree("/trees/t");
  walk();
  EXPECT_EQ(modeOf("both"), 0755u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.setting);
    renewTrees();
    modesTree("/trees/t");
    const TreeSnapshot before = takeSnapshot("/trees/t");
    addSetting(row.setting);
    beforeWalk = [&] { failChmod(row.byDescriptor, 0); };
    EXPECT_EQ(walk().err, "");
    EXPECT_EQ(ownerOf("/trees/t/both"), "10501:10101");
    for (const auto& [path, entry] : before.entries)
      EXPECT_EQ(modeOf(path.c_str()), entry.mode) << path;
  }
}

// The record stays open, and the next one continues on its line.
TEST_F(Interference, LeavesTheLineOpenWhenTheModeIsNotRestored) {
  const TreeEntry tree[] = {{"dir", 'd', 02755, 500, 100, ""},
                            {"dir/file", '-', 0644, 501, 101, ""}};
  makeTree("/trees/t", tree);
  addSetting("idshift.preserve.execution.bits = true");
  options.verbose = false;
  beforeWalk = [] { failChmod(EPERM, EPERM); };
  const WalkResult result = walk();
  EXPECT_EQ(result.err,
            "Failed to set the execution bits of dir back by chmod(): errno=1 (Operation not "
            "permitted)\n");
  EXPECT_EQ(result.changes, 1);
  ASSERT_EQ(records().size(), 1u);
  EXPECT_TRUE(records()[0].starts_with("/trees/t/dir:500:100/trees/t/dir/file:"));
  EXPECT_TRUE(records()[0].ends_with(":501:101:10501:10101"));
}

}  // namespace
