// What a walk does when others move entries while it runs.
//
// Each test changes the tree at the moment at which the walk prints a certain line. The line
// "checking ..." is printed after a look at the entry and before any change of it.
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>

#include "tests/walk/walk_fixture.h"

namespace {

class Interference : public WalkTest {
 protected:
  void arrange() override {
    WalkTest::arrange();
    options.verbose = true;
  }

  // The output of the walk without the lines that announce each entry.
  static std::string complaints(const RunResult& result) {
    std::string kept;
    for (const std::string& line : linesOf(result.err))
      if (!line.starts_with("checking ") && !line.starts_with("changed ownership of "))
        kept += line + "\n";
    return kept;
  }
};

// For the actions of a test: an action that fails is reported on standard error.
void moveTo(const char* from, const char* to) {
  if (rename(from, to) != 0)
    std::perror(from);
}

TEST_F(Interference, EntersOnlyTheDirectoryItLookedAt) {
  plant("/trees", {"d 0:0 t", "d 500:100 t/dir", "d 500:100 t/dir2", "d 500:100 t/covered",
                   "l 0:0 t/to_dir /trees/target", "d 501:101 target", "d 0:0 linked",
                   "- 501:101 linked/file", "d 0:0 other", "- 501:101 other/file", "d 0:0 mounted",
                   "l 0:0 to_linked /trees/linked", "l 0:0 to_mounted /trees/mounted"});
  // A mount in the way is accepted for a directory, but not where a link leads.
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
  at("changed ownership of /trees/t/to_dir",  // the target; the link belongs to root
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

}  // namespace
