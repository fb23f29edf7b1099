// What a walk does when others move things about while it runs, and when calls fail.
//
// Each test changes the world at the moment at which the walk prints a certain line; "checking ..."
// comes after the entry was looked at and before anything is done with it.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <iterator>

#include "tests/support/std_trees.h"
#include "tests/walk/walk_fixture.h"

namespace {

class Interference : public WalkTest {
 protected:
  void arrange() override {
    WalkTest::arrange();
    options.verbose = true;
  }

  // What the walk said beside the lines that announce each entry.
  static std::string complaints(const RunResult& result) {
    std::string kept;
    for (const std::string& line : linesOf(result.err))
      if (!line.starts_with("checking ") && !line.starts_with("changed ownership of "))
        kept += line + "\n";
    return kept;
  }
};

// For actions: what fails is told on standard error.
void moveTo(const char* from, const char* to) {
  if (rename(from, to) != 0)
    std::perror(from);
}

constexpr long kChangeMode = 452;  // fchmodat2, which the C library does not know yet

// From now on the system call fails with this errno.
void fail(long call, int error) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {.len = std::size(program), .filter = program};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
    std::perror("seccomp");
}

// ---- exchanged entries

TEST_F(Interference, EntersOnlyTheDirectoryItLookedAt) {
  plant("/trees", {"d 0:0 t", "d 500:100 t/dir", "d 500:100 t/dir2", "d 500:100 t/covered",
                   "l 0:0 t/to_dir /trees/target", "d 501:101 target", "d 0:0 linked",
                   "- 501:101 linked/file", "d 0:0 other", "- 501:101 other/file", "d 0:0 mounted",
                   "l 0:0 to_linked /trees/linked", "l 0:0 to_mounted /trees/mounted"});
  // That another file system is mounted there excuses a directory, but not where a link leads.
  const auto mountAt = [](const char* path) {
    if (mount("none", path, "tmpfs", 0, nullptr) != 0)
      std::perror(path);
    plant(path, {"- 501:101 file"});
  };
  mountAt("/trees/mounted");
  options.follow = true;
  at("changed ownership of /trees/t/dir", [] {
    moveTo("/trees/t/dir", "/trees/moved");
    moveTo("/trees/to_linked", "/trees/t/dir");
  });
  at("checking /trees/t/dir2 ...", [] {
    moveTo("/trees/t/dir2", "/trees/moved2");
    moveTo("/trees/other", "/trees/t/dir2");
  });
  at("changed ownership of /trees/t/to_dir",  // the target, for the link is root's
     [] { moveTo("/trees/to_mounted", "/trees/t/to_dir"); });
  at("changed ownership of /trees/t/covered", [&] { mountAt("/trees/t/covered"); });
  const std::string said = complaints(walk());
  for (const char* line :
       {"dir: Not a directory\n", "dir2: Stale file handle\n", "to_dir: Stale file handle\n"})
    EXPECT_TRUE(contains(said, std::string("Warning: skipping /trees/t/") + line)) << said;
  for (const char* file : {"/trees/linked/file", "/trees/t/dir2/file", "/trees/mounted/file"})
    EXPECT_EQ(ownerOf(file), "501:101");
  EXPECT_EQ(ownerOf("/trees/t/covered/file"), "10501:10101");
}

TEST_F(Interference, ChangesOnlyTheInodeItLookedAt) {
  plant("/trees",
        {"d 1000:0 t", "- 500:100 t/file", "d 0:0 t/d", "l 0:0 t/d/link /trees/open/target",
         "d 0:0 open", "- 501:101 open/target", "- 0:0 victim"});
  options.follow = true;
  const auto exchange = [](const char* path) {
    moveTo(path, "/trees/moved");
    if (link("/trees/victim", path) != 0)
      std::perror("link");
  };
  at("changed ownership of /trees/t/file", [=] { exchange("/trees/t/file"); });
  at("changed ownership of /trees/t/d/link", [=] { exchange("/trees/open/target"); });
  EXPECT_EQ(complaints(walk()),
            "Error: cannot chown: /trees/t/file: Stale file handle\n"
            "Error: cannot chown: /trees/t/d/link: Stale file handle\n");
  EXPECT_EQ(ownerOf("/trees/victim"), "0:0");
  EXPECT_EQ(records(),
            (std::multiset<std::string>{"/trees/t/file:500:100", ">/trees/t/d/link:501:101"}));
}

// ---- set-id bits

TEST_F(Interference, RestoresTheModeOnlyWhenTold) {
  const struct {
    const char* setting;
    mode_t mode;
    int byDescriptor;  // errno of a chmod by descriptor
  } rows[] = {{"; not told", 0755, 0},
              {"idshift.preserve.execution.bits = true", 06755, 0},
              {"; an old kernel", 06755, ENOSYS},
              {"; an old filter", 06755, EPERM}};
  const TreeEntry file = {"file", '-', 06755, 501, 101, ""};
  for (const auto& row : rows) {
    const std::string top = std::string("/trees/") + row.setting;
    makeTree(top, {&file, 1});
    addSetting(row.setting);
    if (row.byDescriptor != 0)
      at("checking " + top + "/file ...", [&] { fail(kChangeMode, row.byDescriptor); });
    EXPECT_EQ(complaints(walk(top)), "");
    EXPECT_EQ(ownerOf(top + "/file"), "10501:10101");
    EXPECT_EQ(takeSnapshot(top).at("file").mode, row.mode) << row.setting;
  }
}

// The record stays open, and the next one continues on its line.
TEST_F(Interference, LeavesTheLineOpenWhenTheModeIsNotRestored) {
  const TreeEntry tree[] = {{"dir", 'd', 02755, 500, 100, ""},
                            {"dir/file", '-', 0644, 501, 101, ""}};
  makeTree("/trees/t", tree);
  makeTree("/trees/alone", {tree, 1});
  addSetting("idshift.preserve.execution.bits = true");
  for (const char* line : {"checking /trees/t/dir ...", "checking /trees/alone/dir ..."}) {
    at(line, [] {
      for (const long call : {kChangeMode, long{SYS_chmod}, long{SYS_syncfs}})
        fail(call, EPERM);
    });
  }
  const RunResult result = walk();
  EXPECT_EQ(complaints(result),
            "Failed to set the execution bits of dir back by chmod(): errno=1 (Operation not "
            "permitted)\n");
  EXPECT_EQ(result.out, "0 1 /trees\n");
  EXPECT_EQ(records(), std::multiset<std::string>{
                           "/trees/t/dir:500:100/trees/t/dir/file:501:101:10501:10101"});
  EXPECT_EQ(walk("/trees/alone").status, 6);  // what was changed would have been synced
}

}  // namespace
