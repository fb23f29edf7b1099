#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "services/unique_fd.h"
#include "tests/privatelog/log_world.h"

namespace {

namespace fs = std::filesystem;

const std::string kTitle = "idshift report - domain corp\n";
const std::string kRefused = "Error: cannot open report file: ";

class ReportTest : public LogWorld {
 protected:
  // Loads the log and reports as the tool does. Status 0 when Report returned true.
  RunResult report(const std::string& fileName) {
    return runInChild([&] {
      PrivateLog log;
      log.loadPrivateLog(false);
      return log.Report(fileName) ? 0 : 1;
    });
  }
};

TEST_F(ReportTest, ShowsEverySectionByteForByte) {
  writeFile("/trees/half", "");
  writeFile(kLog,
            "domain:corp\n"
            "/above/any/date:1:1:1:2:3:4\n"
            "!Wed Nov 11 00:00:00 2026\n"
            "/a:5:1:500:100:10001:10000\n"
            ">/b:5:2:4294967295:0:4294967294:7\n"
            "/failed:5:3:500:100\n"
            "#undone:5:4:500:100:10001:10000\n"
            "!Thu Nov 12 12:34:28 2026\n"
            "/a:5:1:7:8:7:8\n"
            "+/a2:5:1\n"        // recorded in the section before
            "+/b2:5:2:1:2:3\n"  // an old id is 0
            "+/unknown:6:1\n"
            "/trees/half:7:1:500:100:10001\n"  // its change went through
            "/trees/half:7:2:0:0:7\n"          // its did not
            "/trees/half:7:3:500:100:7\n"      // two records of one inode
            "/trees/half:7:3:500:100:7\n"
            "/trees/gone:5:1:500:100:7\n"
            "@staff:100:10000\n"
            "@empty:100:\n"
            "@bad\n"
            "=ann:500:100:10001:10000\n"
            "=empty:500:100:10001:\n"
            "=bad:1:2:3\n"
            "/a:b:5:7:500:100:10001:10000\n"  // a colon in the name
            "/last/line:5:9:1:1:2:2");
  const RunResult run = report("-");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "idshift report - domain corp\n"
            "1           3           2           4           /above/any/date\n"
            "Date: Wed Nov 11 00:00:00 2026\n"
            "Orig UID    New UID     Orig GID    New GID     File\n"
            "----------  ----------  ----------  ----------  ----------\n"
            "500         10001       100         10000       /a\n"
            "4294967295  4294967294  0           7           /b\n"
            "Date: Thu Nov 12 12:34:28 2026\n"
            "Orig UID    New UID     Orig GID    New GID     File\n"
            "----------  ----------  ----------  ----------  ----------\n"
            "7           7           8           8           /a\n"
            "500         10001       100         10000       /a2\n"
            "0           0           0           0           /b2\n"
            "0           0           0           0           /unknown\n"
            "500         0           100         0           /trees/half\n"
            "Group Update(staff) gid (100) changed to (10000)\n"
            "Group Update(empty) gid (100) changed to (0)\n"
            "Group Update bad line: @bad\n"
            "Passwd Update(ann) uid/gid (500,100) changed to (10001,10000)\n"
            "Passwd Update(empty) uid/gid (500,100) changed to (10001,0)\n"
            "Passwd Update bad line: =bad:1:2:3\n"
            "7           100         500         10001       /a\n");
  const std::string warning = "Warning: skipping /trees/gone: No such file or directory\n";
  EXPECT_EQ(run.err, warning + warning);  // at the load and in the report
}

TEST_F(ReportTest, SaysWhatItWritesOver) {
  writeFile(kLog, kHeader);
  EXPECT_EQ(report("/trees/new").err, "");
  EXPECT_EQ(readFile("/trees/new"), kTitle);
  writeFile("/trees/old", std::string(1000, 'x'));
  fs::create_symlink("/trees/old", "/trees/link");
  EXPECT_EQ(report("/trees/link").err,
            "Warning: report file /trees/link already exists - overwriting\n");
  EXPECT_EQ(readFile("/trees/old"), kTitle);
  fs::create_symlink("/trees/created", "/trees/dangling");
  EXPECT_EQ(report("/trees/dangling").err, "");
  EXPECT_EQ(readFile("/trees/created"), kTitle);
  writeFile(kLog, "");
  EXPECT_EQ(report("/trees/empty").err, "");
  EXPECT_EQ(readFile("/trees/empty"), "");
  fs::remove(kLog);
  EXPECT_EQ(report("/trees/none").err,
            "Error: you must do a commit operation before generating a report\n");
  EXPECT_FALSE(exists("/trees/none"));
}

TEST_F(ReportTest, NeverWritesOverTheLogByAnyName) {
  const std::string text = "domain:corp\n!Mon\n";
  writeFile(kLog, text);
  fs::create_symlink(kLog, "/etc/symbolic");
  fs::create_hard_link(kLog, "/etc/hard");
  for (const std::string& name : {kLog, std::string("/etc/symbolic"), std::string("/etc/hard")}) {
    const RunResult run = report(name);
    EXPECT_EQ(run.err, "Error: not allowed to overwrite private log file " + kLog + "\n") << name;
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(readFile(kLog), text);
  }
}

TEST_F(ReportTest, CannotOpen) {
  writeFile(kLog, kHeader);
  fs::create_directory("/trees/dir");
  ASSERT_EQ(mkfifo("/trees/fifo", 0666), 0);
  ASSERT_EQ(mkfifo("/trees/fifo-with-reader", 0666), 0);
  const UniqueFd reader(open("/trees/fifo-with-reader", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  for (const std::string name : {"", "/trees/none/r", "/trees/fifo", "/trees/fifo-with-reader",
                                 "/trees/dir", "/trees/new/"}) {
    const RunResult run = report(name);
    EXPECT_TRUE(run.err.ends_with(kRefused + name + "\n")) << run.err;
    EXPECT_EQ(run.status, 1);
  }
}

TEST_F(ReportTest, TellsWhenTheReportDoesNotFit) {
  fs::create_directory("/trees/small");
  ASSERT_EQ(mount("small", "/trees/small", "tmpfs", 0, "size=4k"), 0);
  std::string text = kHeader;
  for (int i = 0; i < 1000; ++i)
    text += "/a:5:1:500:100:10001:10000\n";
  writeFile(kLog, text);
  const RunResult run = report("/trees/small/r");
  EXPECT_EQ(run.err, "Error: cannot write report file: /trees/small/r: No space left on device\n");
  EXPECT_EQ(run.status, 1);
}

// In a directory such as /tmp others can have put anything under the report's name.
TEST_F(ReportTest, TakesNothingPlantedInAStickyDirectory) {
  writeFile(kLog, kHeader);
  writeFile("/trees/victim", "precious");
  fs::create_directory("/trees/dir");
  fs::create_symlink("/trees/victim", "/tmp/to-file");
  fs::create_symlink("/trees/created", "/tmp/to-nothing");
  fs::create_symlink("/trees/dir", "/tmp/to-dir");
  fs::create_symlink("/trees/victim", "/tmp/own-link");
  writeFile("/tmp/file", "theirs", 0666);
  for (const char* path : {"/tmp/to-file", "/tmp/to-nothing", "/tmp/to-dir", "/tmp/file"})
    ASSERT_EQ(lchown(path, 777, 777), 0);
  for (const std::string name : {"/tmp/to-file", "/tmp/to-nothing", "/tmp/to-dir/r", "/tmp/file"}) {
    const RunResult run = report(name);
    EXPECT_TRUE(run.err.ends_with(kRefused + name + "\n")) << run.err;
  }
  EXPECT_EQ(readFile("/trees/victim"), "precious");
  EXPECT_EQ(readFile("/tmp/file"), "theirs");
  EXPECT_FALSE(exists("/trees/created"));
  EXPECT_FALSE(exists("/trees/dir/r"));
  EXPECT_EQ(report("/tmp/own-link").status, 0);
  EXPECT_EQ(readFile("/trees/victim"), kTitle);
}

}  // namespace
