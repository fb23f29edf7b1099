// A later commit tries a change again that failed, even when the accounts have moved by then and no
// conflict is left. Only the recorded file is changed, and only if it is still as it was recorded.
#include <sys/mount.h>

#include <filesystem>

#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/support/whole_run.h"

namespace {

class FailedChanges : public WholeRun {
 protected:
  static constexpr const char* kFile = "/trees/t/d/f";

  // A --commit-all that converts everything but the file.
  static void failOnce() {
    umount2(kFile, MNT_DETACH);
    std::filesystem::remove_all("/trees/t");
    for (const char* file : {paths::kPrivateLog, paths::kPrivateLogIndex})
      std::filesystem::remove(file);
    plant("/trees", {"d 0:0 t", "d 500:100 t/d", "- 500:100 t/d/f", "- 500:100 t/g"});
    usleep(12'000);
    ASSERT_EQ(mount(kFile, kFile, "", MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("", kFile, "", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    const RunResult failed = idshift({"-C", "/trees/t"});
    ASSERT_TRUE(contains(failed.err, std::string("cannot chown: ") + kFile)) << failed;
    ASSERT_EQ(ownerOf("/trees/t/g"), "10001:10000");
    ASSERT_EQ(umount2(kFile, MNT_DETACH), 0);
  }
};

}  // namespace

TEST_F(FailedChanges, AreTriedAgain) {
  const struct {
    const char* what;
    std::function<void()> meanwhile;
    std::vector<std::string> command;
    std::string owner;
  } rows[] = {
      {"nothing happened", [] {}, {"-c", "/trees/t"}, "10001:10000"},
      {"the top is the directory itself", [] {}, {"-c", "/trees/t/d"}, "10001:10000"},
      {"another tree is named", [] {}, {"-c", "/trees/t/d/f"}, "500:100"},
      {"pretended", [] {}, {"-c", "-F", "/trees/t"}, "500:100"},
      {"by its present name no more",
       [] { ASSERT_EQ(rename(kFile, "/trees/t/d/moved"), 0); },
       {"-c", "/trees/t"},
       "gone"},
      {"it was given away",
       [] { ASSERT_EQ(chown(kFile, 700, 100), 0); },
       {"-c", "/trees/t"},
       "700:100"},
      {"another file is there",
       [] { ASSERT_EQ(shell("cd /trees/t/d; touch new; chown 500:100 new; mv new f").status, 0); },
       {"-c", "/trees/t"},
       "500:100"},
      {"the section was undone",
       [] {
         ASSERT_EQ(idshift({"-U"}).status, 0);
         // No conflict is left.
         setZone("ann:x:500:100:::\n", "users:x:100:\n");
       },
       {"-c", "/trees/t"},
       "500:100"},
      {"the domain is another",
       [] { writeFile(paths::kSettings, "domain.name = other\n"); },
       {"-c", "/trees/t"},
       "500:100"},
  };
  const std::string passwd = readFile(paths::kPasswd);
  const std::string group = readFile(paths::kGroup);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    setPasswd(passwd);
    setGroup(group);
    writeFile(paths::kSettings, "domain.name = corp\n");
    setZone(zoneUsers, "users:x:10000:\ndomad:x:101:\n");
    failOnce();
    row.meanwhile();
    const RunResult again = idshift(row.command);
    EXPECT_EQ(again.status, 0) << again;
    EXPECT_EQ(ownerOf(kFile), row.owner) << again;
    if (row.owner != "10001:10000")
      continue;
    // The change is recorded and counted once, like any other.
    EXPECT_TRUE(contains(again.out, "1 file(s) changed\n")) << again;
    EXPECT_EQ(idshift(row.command).out,
              "No user-id or group-id conflicts were found, change nothing.\n"
              "0 file(s) changed\n");
    EXPECT_EQ(idshift({"-U"}).status, 0);
    EXPECT_EQ(ownerOf(kFile), "500:100");
  }
}
