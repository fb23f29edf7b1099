// Real runs with helpers that read ahead. The helpers keep to the rules of the walk, and the runs
// have the same results as without helpers.
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>

#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/support/users_mount.h"
#include "tests/support/whole_run.h"

namespace {

class ReadAheadRun : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    addSetting("idshift.read.ahead = 3");
    plant("/trees/t", {"d 500:100 a", "d 500:100 a/b", "- 500:100 a/b/deep", "d 500:100 mounted",
                       "d 0:0 users", "l 500:100 link /trees/other"});
    plant("/trees/other", {"- 500:100 elsewhere"});
    ASSERT_EQ(mount("tmpfs", "/trees/t/mounted", "tmpfs", 0, nullptr), 0);
    plant("/trees/t/mounted", {"d 500:100 m", "- 500:100 m/beyond", "d 0:0 users"});
    // So many that helpers overtake a walk that waits.
    for (int i = 0; i < 300; ++i) {
      for (const char* directory : {"/trees/t/a", "/trees/t/mounted"})
        plant(directory, {"- 500:100 file" + std::to_string(i)});
    }
  }

  void TearDown() override {
    umount2("/trees/t/mounted", MNT_DETACH);
    WholeRun::TearDown();
  }

  // How many threads and processes have ended when the first account file is replaced: the three
  // helpers, and the two commands that have copied the account files.
  static size_t goneBeforeAccounts(const std::string& made) {
    const std::string before = made.substr(0, made.find(", \"/etc/passwd\")"));
    const std::regex gone("exited with 0");
    return static_cast<size_t>(std::distance(
        std::sregex_iterator(before.begin(), before.end(), gone), std::sregex_iterator()));
  }

  // Runs idshift and returns its calls of openat2, which only helpers make, and of rename. The leak
  // sanitizer cannot work in a traced program.
  static std::string calls(const std::string& arguments) {
    const RunResult traced =
        shell("ASAN_OPTIONS=detect_leaks=0 strace -f -e trace=openat2,rename -o /tmp/calls " +
              binaryPath("idshift") + " " + arguments);
    EXPECT_EQ(traced.status, 0) << traced;
    return readFile("/tmp/calls");
  }
};

}  // namespace

TEST_F(ReadAheadRun, HelpersGoOnlyWhereTheWalkGoes) {
  UsersMount users;
  ASSERT_TRUE(users.mountAt("/trees/t/users", 0)) << "no FUSE";
  const std::string made = calls("-c -x /trees/t");
  EXPECT_TRUE(std::regex_search(made, std::regex("\"a/b\".*RESOLVE_NO_XDEV"))) << made;
  EXPECT_TRUE(contains(made, "\"deep\""));
  for (const char* never : {"\"m\"", "beyond", "elsewhere", "\"f\""})
    EXPECT_FALSE(contains(made, never)) << never << made;
  EXPECT_EQ(ownerOf("/trees/t/a/b/deep"), "10001:10000");
  EXPECT_EQ(ownerOf("/trees/t/mounted/m/beyond"), "500:100");

  // Beyond a mount, too, helpers go only where the walk goes.
  UsersMount behind;
  ASSERT_TRUE(behind.mountAt("/trees/t/mounted/users", 0));
  const std::string across = calls("-c /trees/t");
  EXPECT_TRUE(contains(across, "\"mounted\"")) << across;
  for (const char* never : {"mounted/users", "\"f\""})
    EXPECT_FALSE(contains(across, never)) << never << across;
  // Helpers trigger no automount, because they hold a directory before they read it.
  for (const char* never : {"\"users\", (?!.*NO_XDEV)", "\"[^\".]+\", .*O_NONBLOCK"})
    EXPECT_FALSE(std::regex_search(made + across, std::regex(never))) << never << across;
}

TEST_F(ReadAheadRun, AnUndoReadsAheadUntilItComesToAccounts) {
  EXPECT_EQ(goneBeforeAccounts(calls("-C /trees/t")), 5U);
  EXPECT_EQ(ownerOf("/trees/t/mounted/m/beyond"), "10001:10000");
  const std::string made = calls("-U");
  EXPECT_EQ(goneBeforeAccounts(made), 5U) << made;
  EXPECT_TRUE(std::regex_search(made, std::regex("\"trees/t/a/file[0-9]+\"|\"t/a/file[0-9]+\"")))
      << made;
  for (const char* back : {"/trees/t/a/file7", "/trees/t/a/b/deep", "/trees/t/mounted/m/beyond"})
    EXPECT_EQ(ownerOf(back), "500:100");
}

// The lines of other names, which an undo passes over, do not keep the helpers back.
TEST_F(ReadAheadRun, AnUndoOfManyNamesIsReadAheadOfUpToItsEnd) {
  std::vector<std::string> rows;
  for (int i = 0; i < 1500; ++i) {
    const std::string file = "f" + std::to_string(i);
    for (const char* row : {"- 500:100 F", "h 0:0 Fb F", "h 0:0 Fc F"})
      rows.push_back(std::regex_replace(row, std::regex("F"), file));
  }
  plant("/trees/many", rows);
  ASSERT_EQ(shell(binaryPath("idshift") + " -c /trees/many").status, 0);
  const std::vector<std::string> lines = linesOf(readFile(paths::kPrivateLog));
  const std::string made = calls("-U");
  EXPECT_TRUE(std::any_of(lines.end() - 900, lines.end(), [&](const std::string& line) {
    const size_t name = line.find("many/");
    return contains(made, line.substr(name, line.find(':') - name) + "\"");
  })) << made;
}
