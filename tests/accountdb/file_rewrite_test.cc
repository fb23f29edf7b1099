// Reading and replacing an account file, and what is left when something fails.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <csignal>

#include <gtest/gtest.h>

#include "accountdb/db_command.h"
#include "accountdb/db_file.h"
#include "accountdb/db_operator.h"
#include "accountdb/db_passwd.h"
#include "tests/accountdb/etc_state.h"
#include "tests/accountdb/faults.h"

namespace orvs {
namespace {

constexpr const char* kBefore =
    "root:x:0:0:root:/root:/bin/sh\n"
    "ann:x:500:100::/home/ann:/bin/sh\n";
constexpr const char* kAfter =
    "root:x:0:0:root:/root:/bin/sh\n"
    "ann:x:9500:9100::/home/ann:/bin/sh\n";
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

struct stat statusOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info;
}

class RewriteTest : public SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    if (!IsSkipped()) {
      setPasswd(kBefore);
      setGroup("staff:x:100:ann\n");
    }
  }

  // Nothing beside the backup has changed.
  void expectUntouched(const EntryState& before) {
    EXPECT_EQ(readFile("/etc/passwd"), kBefore);
    EXPECT_EQ(takeSnapshot("/etc").at("passwd"), before);
    EXPECT_EQ(leftovers(), std::set<std::string>{});
    EXPECT_EQ(DBFile::lockCount, 0);
  }
};

// Reading

TEST_F(RewriteTest, LinesEndAtTheFirstEmptyOne) {
  const std::string longLine(5000, 'x');
  const struct {
    std::string text;
    std::list<std::string> lines;
  } rows[] = {
      {"", {}},
      {"a", {"a"}},
      {"a\nb\n", {"a", "b"}},
      {"a\nb", {"a", "b"}},
      {"a\n\nb\n", {"a"}},
      {"\na\n", {}},
      {longLine + "\nb\n", {longLine, "b"}},
      {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    writeFile("/etc/x", row.text);
    DBFile file("/etc/x");
    file.setReadOnly(true);
    ASSERT_TRUE(file.open());
    EXPECT_EQ(linesOf(file), row.lines);
    EXPECT_EQ(file.first(), !row.lines.empty());
    EXPECT_EQ(linesOf(file), row.lines);
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
    const struct stat info = statusOf("/etc/passwd");
    EXPECT_EQ(info.st_mode & ALLPERMS, row.after);
    EXPECT_EQ(info.st_uid, row.uid);
    EXPECT_EQ(info.st_gid, row.gid);
  }
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

TEST_F(RewriteTest, TheBackupIsTheOldFileWithItsTime) {
  const struct utimbuf old = {1000000, 2000000};
  ASSERT_EQ(::utime("/etc/passwd", &old), 0);
  ASSERT_TRUE(replace("/etc/passwd", {}));
  EXPECT_EQ(readFile("/etc/passwd"), "");
  EXPECT_EQ(readFile("/etc/passwd-"), kBefore);
  EXPECT_EQ(statusOf("/etc/passwd-").st_mtime, 2000000);
  EXPECT_EQ(statusOf("/etc/passwd-").st_mode & ALLPERMS, 0600u);

  ASSERT_EQ(::chmod("/etc/passwd-", 0640), 0);
  ASSERT_EQ(::chown("/etc/passwd-", 0, 42), 0);
  ASSERT_TRUE(replace("/etc/passwd", {"a"}));
  EXPECT_EQ(readFile("/etc/passwd-"), "");
  EXPECT_EQ(statusOf("/etc/passwd-").st_mode & ALLPERMS, 0640u);
  EXPECT_EQ(statusOf("/etc/passwd-").st_gid, 42u);
}

TEST_F(RewriteTest, RefusesAStoreThatIsNotWritableLockedAndOpen) {
  const EntryState before = takeSnapshot("/etc").at("passwd");
  DBFile file("/etc/passwd");
  file.setReadOnly(true);
  EXPECT_TRUE(file.open());
  EXPECT_FALSE(file.closeUpdate({"a"}));
  file.setReadOnly(false);
  EXPECT_FALSE(file.closeUpdate({"a"}));  // open, but not locked
  file.close();
  ASSERT_TRUE(file.lock());
  EXPECT_FALSE(file.closeUpdate({"a"}));  // locked, but not open
  file.unlock();
  expectUntouched(before);
  EXPECT_FALSE(exists("/etc/passwd-"));
}

TEST_F(RewriteTest, ATemporaryNameThatIsALinkIsNotFollowed) {
  const EntryState before = takeSnapshot("/etc").at("passwd");
  recordLog();
  writeFile("/etc/victim", "keep");
  ASSERT_EQ(::symlink("victim", "/etc/passwd+"), 0);
  EXPECT_FALSE(modifyAnn());
  EXPECT_EQ(readFile("/etc/victim"), "keep");
  expectUntouched(before);
}

// Faults

TEST_F(RewriteTest, EachCallThatFailsLeavesOneWholeFile) {
  for (const char* call : faults::kCalls) {
    for (int nth = 1;; ++nth) {
      SCOPED_TRACE(::testing::Message() << call << " no. " << nth);
      setPasswd(kBefore);
      ASSERT_EQ(::chmod("/etc/passwd", 0640), 0);
      ASSERT_EQ(::chown("/etc/passwd", 3, 42), 0);
      const TreeSnapshot before = takeSnapshot("/etc");
      faults::arm(call, nth, ENOSPC);
      const bool done = modifyAnn();
      if (!faults::disarm()) {
        EXPECT_TRUE(done);
        EXPECT_GT(nth, 1) << "the fault never struck";
        break;
      }
      EXPECT_EQ(readFile("/etc/passwd"), done ? kAfter : kBefore);
      const EntryState after = takeSnapshot("/etc").at("passwd");
      EXPECT_EQ(after.mode, 0640u);
      EXPECT_EQ(after.uid, 3u);
      EXPECT_EQ(after.gid, 42u);
      EXPECT_EQ(after.ino == before.at("passwd").ino, !done);
      EXPECT_EQ(takeSnapshot("/etc").at("group"), before.at("group"));
      EXPECT_EQ(leftovers(), std::set<std::string>{});
      EXPECT_EQ(DBFile::lockCount, 0);
    }
  }
}

TEST_F(RewriteTest, EachFailureHasItsWords) {
  const struct {
    const char* call;
    int nth;
    const char* words;
  } rows[] = {
      {"lckpwdf", 1, "lock lckpwdf() failed."},
      {"link", 1, "lock cannot lock file /etc/passwd."},
      {"open", 3, "closeUpdate cannot create backup file /etc/passwd- for /etc/passwd."},
      {"posix_fallocate", 1, "closeUpdate cannot open temporary file /etc/passwd+ for writing."},
      {"close", 4, "closeUpdate cannot open temporary file /etc/passwd+ for writing."},
      {"close", 5, "closeUpdate cannot open temporary file /etc/passwd+ for writing."},
      {"fsync", 1, "closeUpdate cannot open temporary file /etc/passwd+ for writing."},
      {"rename", 1, "closeUpdate cannot rename file /etc/passwd+ to /etc/passwd."},
  };
  recordLog();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.words);
    faults::arm(row.call, row.nth, EIO);
    EXPECT_FALSE(modifyAnn());
    EXPECT_TRUE(faults::disarm());
    std::string all;
    for (const std::string& record : readLogRecords())
      all += record + "\n";
    EXPECT_NE(all.find(std::string(" ") + row.words + "\n"), std::string::npos) << all;
  }
}

TEST_F(RewriteTest, AReadErrorBehindTheAccountFailsTheUpdate) {
  const EntryState before = takeSnapshot("/etc").at("passwd");
  faults::arm("getdelim", 3, EIO);  // both lines have been read
  EXPECT_FALSE(modifyAnn());
  EXPECT_TRUE(faults::disarm());
  expectUntouched(before);
}

TEST_F(RewriteTest, NoShortageOfRoomOrInodesHarmsTheFile) {
  const struct {
    const char* what;
    int first, step;
    const char* unit;
  } rows[] = {{"size=", 16, 4, "k"}, {"nr_inodes=", 3, 1, ""}};
  std::string text = kBefore;
  while (text.size() < 12000)
    text += "user:x:1000:1000::/home/u:/bin/sh\n";
  for (const auto& row : rows) {
    int failures = 0;
    for (int amount = row.first; failures < 30; amount += row.step, ++failures) {
      const std::string options = row.what + std::to_string(amount) + row.unit;
      SCOPED_TRACE(options);
      ASSERT_EQ(::mount("small", "/etc", "tmpfs", 0, options.c_str()), 0);
      writeFile("/etc/passwd", text, 0640);
      const EntryState before = takeSnapshot("/etc").at("passwd");
      if (modifyAnn())
        break;
      EXPECT_EQ(takeSnapshot("/etc").at("passwd"), before);
      EXPECT_EQ(leftovers(), std::set<std::string>{});
      EXPECT_EQ(DBFile::lockCount, 0);
    }
    EXPECT_GE(failures, 3) << row.what;
    EXPECT_EQ(statusOf("/etc/passwd").st_size, static_cast<off_t>(text.size() + 2));
  }
}

TEST_F(RewriteTest, AFileSizeLimitFailsTheUpdate) {
  const EntryState before = takeSnapshot("/etc").at("passwd");
  const RunResult run = runInChild([] {
    std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {40, 40};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return modifyAnn() ? 1 : 0;
  });
  EXPECT_EQ(run.status, 0) << run;
  expectUntouched(before);
}

}  // namespace
}  // namespace orvs
