// What a walk does when others move things about while it runs, and when calls fail.
//
// Each test changes the world at the moment at which the walk prints a certain line; "checking ..."
// comes after the entry was looked at and before anything is done with it.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
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
#include <sstream>

#include "tests/support/std_trees.h"
#include "tests/walk/walk_fixture.h"

#include <linux/auto_fs4.h>

namespace {

class Interference : public WalkTest {
 protected:
  void SetUp() override {
    WalkTest::SetUp();
    options.verbose = true;
  }

  // What the walk said beside the lines that announce each entry.
  std::string complaints(const WalkResult& result) {
    std::istringstream all(result.err);
    std::string kept;
    for (std::string line; std::getline(all, line);)
      if (!line.starts_with("checking ") && !line.starts_with("changed ownership of "))
        kept += line + "\n";
    return kept;
  }
};

void moveTo(const char* from, const char* to) {
  if (rename(from, to) != 0)
    std::perror(from);
}

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

TEST_F(Interference, DoesNotGoThroughALinkPutInADirectorysPlace) {
  const TreeEntry inside[] = {{"dir", 'd', 0755, 500, 100, ""}};
  const TreeEntry outside[] = {{"file", '-', 0644, 501, 101, ""}};
  makeTree("/trees/t", inside);
  makeTree("/trees/outside", outside);
  at("changed ownership of /trees/t/dir", [] {
    moveTo("/trees/t/dir", "/trees/moved");
    if (symlink("/trees/outside", "/trees/t/dir") != 0)
      std::perror("symlink");
  });
  const WalkResult result = walk();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(complaints(result), "Warning: skipping /trees/t/dir: Not a directory\n");
  EXPECT_EQ(ownerOf("/trees/outside/file"), "501:101");
}

TEST_F(Interference, DoesNotEnterAnotherDirectoryUnderTheSameName) {
  const TreeEntry inside[] = {{"dir", 'd', 0755, 500, 100, ""},
                              {"to_dir", 'l', 0, 0, 0, "/trees/target"}};
  const TreeEntry outside[] = {{"file", '-', 0644, 501, 101, ""}};
  makeTree("/trees/t", inside);
  // That another file system is mounted there excuses a directory, but not where a link leads.
  ASSERT_EQ(mkdir("/trees/mounted", 0755), 0);
  ASSERT_EQ(mount("none", "/trees/mounted", "tmpfs", 0, nullptr), 0);
  for (const char* other : {"/trees/outside", "/trees/mounted", "/trees/target"})
    makeTree(other, outside);
  options.follow = true;
  at("checking /trees/t/dir ...", [] {
    moveTo("/trees/t/dir", "/trees/moved");
    moveTo("/trees/outside", "/trees/t/dir");
  });
  ASSERT_EQ(chown("/trees/target", 501, 101), 0);
  at("changed ownership of /trees/t/to_dir", [] {  // the target, for the link is root's
    moveTo("/trees/t/to_dir", "/trees/old link");
    if (symlink("/trees/mounted", "/trees/t/to_dir") != 0)
      std::perror("symlink");
  });
  const WalkResult result = walk();
  const std::string said = complaints(result);
  EXPECT_NE(said.find("Warning: skipping /trees/t/dir: Stale file handle\n"), std::string::npos);
  EXPECT_NE(said.find("Warning: skipping /trees/t/to_dir: Stale file handle\n"), std::string::npos);
  EXPECT_EQ(ownerOf("/trees/t/dir/file"), "501:101");
  EXPECT_EQ(ownerOf("/trees/mounted/file"), "501:101");
}

// An automounter mounts at the open what the look did not.
TEST_F(Interference, EntersWhatIsMountedOnADirectoryMeanwhile) {
  const TreeEntry inside[] = {{"dir", 'd', 0755, 500, 100, ""}};
  makeTree("/trees/t", inside);
  at("changed ownership of /trees/t/dir", [] {
    if (mount("none", "/trees/t/dir", "tmpfs", 0, nullptr) != 0)
      std::perror("mount");
    writeFile("/trees/t/dir/file", "");
    if (chown("/trees/t/dir/file", 501, 101) != 0)
      std::perror("chown");
  });
  EXPECT_EQ(complaints(walk()), "");
  EXPECT_EQ(ownerOf("/trees/t/dir/file"), "10501:10101");
}

// Serves the automounter's file system at /trees/auto, whose "dir" is bob's: mounts there once.
// Ends at once when that cannot be had.
void automount(int ready) {
  int requests[2];
  setpgid(0, 0);
  if (pipe(requests) != 0)
    _exit(1);
  const std::string how = "minproto=5,maxproto=5,indirect,pgrp=" + std::to_string(getpgrp()) +
                          ",fd=" + std::to_string(requests[1]);
  if (mount("none", "/trees/auto", "autofs", 0, how.c_str()) != 0 ||
      mkdir("/trees/auto/dir", 0755) != 0 || chown("/trees/auto/dir", 501, 101) != 0)
    _exit(1);
  const int root = open("/trees/auto", O_RDONLY);
  autofs_v5_packet_union packet = {};
  if (write(ready, "", 1) != 1 || read(requests[0], &packet, sizeof packet) <= 0)
    _exit(1);
  if (mount("none", "/trees/auto/dir", "tmpfs", 0, "uid=501,gid=101,mode=755") == 0 &&
      mkdir("/trees/auto/dir/in", 0755) == 0 && chown("/trees/auto/dir/in", 501, 101) == 0)
    ioctl(root, AUTOFS_IOC_READY, packet.v5_packet.wait_queue_token);
  _exit(0);
}

// What stat does not mount behind a link, the open does.
TEST_F(Interference, EntersWhatAnAutomounterMountsBehindALink) {
  const TreeEntry inside[] = {{"to_dir", 'l', 0, 0, 0, "/trees/auto/dir"}};
  makeTree("/trees/t", inside);
  ASSERT_EQ(mkdir("/trees/auto", 0755), 0);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t automounter = fork();
  if (automounter == 0)
    automount(ready[1]);
  close(ready[1]);
  char byte = 0;
  if (read(ready[0], &byte, 1) != 1)
    GTEST_SKIP() << "no automounter can be had";
  options.nfs = options.follow = true;
  EXPECT_EQ(complaints(walk()), "");
  EXPECT_EQ(waitpid(automounter, nullptr, 0), automounter);
  EXPECT_EQ(ownerOf("/trees/auto/dir/in"), "10501:10101");
}

TEST_F(Interference, ChangesOnlyTheInodeItLookedAt) {
  const TreeEntry file{"file", '-', 0644, 500, 100, ""};
  const TreeEntry link{"link", 'l', 0, 0, 0, "/trees/open/target"};
  const TreeEntry open[] = {{"target", '-', 0644, 501, 101, ""}};
  const TreeEntry outside[] = {{"victim", '-', 0600, 0, 0, ""}};
  struct Row {
    const TreeEntry& entry;
    uid_t topOwner;
    const char* swapped;  // at "changed ownership of ..."
  };
  const Row rows[] = {{file, 1000, "/trees/t/file"}, {link, 0, "/trees/open/target"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.entry.path);
    forgetActions();
    renewTrees();
    makeTree("/trees/t", {&row.entry, 1});
    makeTree("/trees/open", open);
    makeTree("/trees/outside", outside);
    ASSERT_EQ(chown("/trees/t", row.topOwner, 0), 0);
    options.follow = true;
    const std::string path = "/trees/t/" + row.entry.path;
    at("changed ownership of " + path, [&] {
      moveTo(row.swapped, "/trees/moved");
      if (::link("/trees/outside/victim", row.swapped) != 0)
        std::perror("link");
    });
    EXPECT_EQ(complaints(walk()), "Error: cannot chown: " + path + ": Stale file handle\n");
    EXPECT_EQ(ownerOf("/trees/outside/victim"), "0:0");
    const std::vector<std::string> lines = records();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) {
                              return std::count(line.begin(), line.end(), ':') == 2;
                            }),
              1);
  }
}

// ---- the way back

// "b" is moved to a place whose other names are those of the level that was left.
TEST_F(Interference, LooksUpNoNameInAnotherPlace) {
  const TreeEntry tree[] = {{"a", 'd', 0755, 500, 100, ""},        {"a/x", 'd', 0755, 500, 100, ""},
                            {"a/x/file", '-', 0644, 500, 100, ""}, {"a/y", 'd', 0755, 500, 100, ""},
                            {"a/y/file", '-', 0644, 500, 100, ""}, {"b", 'd', 0755, 500, 100, ""},
                            {"b/file", '-', 0644, 500, 100, ""},   {"c", 'd', 0755, 500, 100, ""},
                            {"c/file", '-', 0644, 500, 100, ""}};
  const TreeEntry outside[] = {{"x", 'd', 0755, 501, 101, ""},
                               {"x/file", '-', 0644, 501, 101, ""},
                               {"y", 'd', 0755, 501, 101, ""},
                               {"y/file", '-', 0644, 501, 101, ""}};
  makeTree("/trees/t", tree);
  makeTree("/trees/outside", outside);
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
  struct Row {
    const char* setting;
    int byDescriptor;  // errno of a chmod by descriptor
    mode_t modeAfter;
  };
  const Row rows[] = {{"idshift.preserve.execution.bits = true", 0, 06755},
                      {"; an old kernel", ENOSYS, 06755},
                      {"; an old filter", EPERM, 06755}};
  options.verbose = false;
  const auto modeOf = [](const char* path) { return takeSnapshot("/trees/t").at(path).mode; };
  modesTree("/trees/t");
  walk();
  EXPECT_EQ(modeOf("both"), 0755u);
  for (const Row& row : rows) {
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
