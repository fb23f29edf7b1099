// Reading and replacing an account file, and what is left when something fails.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include "accountdb/db_command.h"
#include "accountdb/db_file.h"
#include "accountdb/db_operator.h"
#include "accountdb/db_passwd.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

constexpr const char* kBefore =
    "root:x:0:0:root:/root:/bin/sh\n"
    "ann:x:500:100::/home/ann:/bin/sh\n";
constexpr const char* kNewAnn = "ann:x:9500:9100::/home/ann:/bin/sh";

bool modifyAnn() {
  DBPwCommand store;
  return store.modify(kNewAnn);
}

std::list<std::string> linesOf(DBStorage& store) {
  std::list<std::string> lines;
  for (; store.hasLine(); store.next())
    lines.push_back(store.getLine());
  return lines;
}

// Locks and opens the file, then replaces it.
bool replace(const char* path, const std::list<std::string>& lines) {
  DBFile file(path);
  const bool done = file.lock() && file.open() && file.closeUpdate(lines);
  file.unlock();
  return done;
}

class RewriteTest : public SandboxTest {
 protected:
  void arrange() override {
    setPasswd(kBefore);
    setGroup("staff:x:100:ann\n");
  }

  static EntryState stateOf(const char* name) { return takeSnapshot("/etc").at(name); }

  // The passwd file is the same in every respect, and nothing but a backup lies beside it.
  static void expectUntouched(const EntryState& before) {
    EXPECT_EQ(stateOf("passwd"), before);
    EXPECT_EQ(leftovers(), std::set<std::string>{});
    EXPECT_EQ(DBFile::lockCount, 0);
  }
};

// Reading

TEST_F(RewriteTest, LinesEndAtTheFirstEmptyOne) {
  const std::string longLine(5000, 'x');
  const std::pair<std::string, std::list<std::string>> rows[] = {
      {"", {}},
      {"a\nb\n", {"a", "b"}},
      {"a\nb", {"a", "b"}},
      {"a\n\nb\n", {"a"}},
      {"\na\n", {}},
      {longLine + "\nb\n", {longLine, "b"}},
      {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
  };
  for (const auto& [text, lines] : rows) {
    SCOPED_TRACE(text);
    writeFile("/etc/x", text);
    DBFile file("/etc/x");
    file.setReadOnly(true);
    ASSERT_TRUE(file.open());
    EXPECT_EQ(linesOf(file), lines);
    EXPECT_EQ(file.first(), !lines.empty());
    EXPECT_EQ(linesOf(file), lines);
  }
}

TEST_F(RewriteTest, OpensOnlyWhatIsReadOnlyOrLocked) {
  recordLog();
  DBFile file("/etc/passwd");
  EXPECT_FALSE(file.open());
  EXPECT_EQ(readLogRecords().size(), 0u);
  file.setReadOnly(true);
  EXPECT_TRUE(file.open());
  EXPECT_FALSE(file.openPath("/etc/missing"));
  EXPECT_TRUE(lastRecord().ends_with("cannot open file /etc/missing."));
  EXPECT_FALSE(file.openPath(""));
}

// Replacing

TEST_F(RewriteTest, OwnerStaysAndModeIsMasked) {
  const struct {
    mode_t before, after;
    uid_t uid;
    gid_t gid;
  } rows[] = {{0644, 0644, 0, 0},   {0640, 0640, 0, 42}, {0755, 0644, 0, 0},
              {0666, 0664, 500, 0}, {06600, 0600, 1, 2}, {0, 0, 0, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << std::oct << row.before);
    ASSERT_EQ(::chown("/etc/passwd", row.uid, row.gid), 0);
    ASSERT_EQ(::chmod("/etc/passwd", row.before), 0);
    const mode_t maskBefore = ::umask(027);
    ASSERT_TRUE(replace("/etc/passwd", {"a", "b"}));
    EXPECT_EQ(::umask(maskBefore), 027u);
    EXPECT_EQ(readFile("/etc/passwd"), "a\nb\n");
    const EntryState state = stateOf("passwd");
    EXPECT_EQ(state.mode, row.after);
    EXPECT_EQ(state.uid, row.uid);
    EXPECT_EQ(state.gid, row.gid);
  }
}

TEST_F(RewriteTest, TheBackupIsTheOldFileWithItsTime) {
  const struct utimbuf old = {1000000, 2000000};
  ASSERT_EQ(::utime("/etc/passwd", &old), 0);
  ASSERT_TRUE(replace("/etc/passwd", {}));
  EXPECT_EQ(readFile("/etc/passwd"), "");
  EXPECT_EQ(readFile("/etc/passwd-"), kBefore);
  struct stat info = {};
  EXPECT_EQ(::stat("/etc/passwd-", &info), 0);
  EXPECT_EQ(info.st_mtime, 2000000);
  EXPECT_EQ(info.st_mode & ALLPERMS, 0600u);

  writeFile("/etc/passwd-", "older", 0640);
  ASSERT_EQ(::chown("/etc/passwd-", 0, 42), 0);
  ASSERT_TRUE(replace("/etc/passwd", {"a"}));
  EXPECT_EQ(readFile("/etc/passwd-"), "");
  EXPECT_EQ(stateOf("passwd-").mode, 0640u);
  EXPECT_EQ(stateOf("passwd-").gid, 42u);
}

TEST_F(RewriteTest, RefusesAStoreThatIsNotWritableLockedAndOpen) {
  const EntryState before = stateOf("passwd");
  DBFile file("/etc/passwd");
  file.setReadOnly(true);
  EXPECT_TRUE(file.open());
  EXPECT_FALSE(file.closeUpdate({"a"}));
  file.setReadOnly(false);
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not locked
  file.close();
  EXPECT_TRUE(file.lock());
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not open
  file.unlock();
  expectUntouched(before);
}

TEST_F(RewriteTest, ATemporaryNameThatIsALinkIsNotFollowed) {
  const EntryState before = stateOf("passwd");
  writeFile("/etc/victim", "keep");
  ASSERT_EQ(::symlink("victim", "/etc/passwd+"), 0);
  EXPECT_FALSE(modifyAnn());
  EXPECT_EQ(readFile("/etc/victim"), "keep");
  expectUntouched(before);
}

// Faults

TEST_F(RewriteTest, EachFailureHasItsWords) {
  const std::pair<const char*, const char*> rows[] = {
      // a directory in the way, the words
      {"/etc/.pwd.lock", "lock lckpwdf() failed."},
      {"/etc/passwd-", "closeUpdate cannot create backup file /etc/passwd- for /etc/passwd."},
      {"/etc/passwd+", "closeUpdate cannot open temporary file /etc/passwd+ for writing."},
      {nullptr, "closeUpdate cannot rename file /etc/passwd+ to /etc/passwd."}};
  ASSERT_EQ(::mount("/etc/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);  // no rename
  recordLog();
  for (const auto& [obstacle, words] : rows) {
    SCOPED_TRACE(words);
    removeFile("/etc/passwd-");
    if (obstacle != nullptr) {
      removeFile(obstacle);
      ASSERT_EQ(::mkdir(obstacle, 0755), 0);
    }
    EXPECT_FALSE(modifyAnn());
    std::string all;
    for (const std::string& record : readLogRecords())
      all += record + "\n";
    EXPECT_TRUE(contains(all, std::string(" ") + words + "\n")) << all;
    if (obstacle != nullptr)
      removeFile(obstacle);
  }
  expectUntouched(stateOf("passwd"));
  EXPECT_EQ(readFile("/etc/passwd"), kBefore);
  ::umount2("/etc/passwd", MNT_DETACH);
}

}  // namespace
}  // namespace orvs
