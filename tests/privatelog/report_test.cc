#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "services/unique_fd.h"
#include "tests/privatelog/log_world.h"

namespace {

namespace fs = std::filesystem;

class ReportTest : public LogWorld {
 protected:
  // Loads the log and reports as the program does. The status is 0 when Report() returned true.
  RunResult report(const std::string& fileName, uid_t caller = 0) {
    const auto body = [&] {
      PrivateLog log;
      log.loadPrivateLog(false);
      return log.Report(fileName) ? 0 : 1;
    };
    return runInChild(body, {.uid = caller});
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
            "+/a2:5:1\n"        // a name of an inode of the section before
            "+/b2:5:2:1:2:3\n"  // an old id is 0
            "+/later:6:1\n"
            "/later/still:6:1:1:2:3:4\n"
            "/trees/half:7:1:500:100:10001\n"  // the change was made
            "/trees/half:7:2:0:0:7\n"          // the change was not made
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
            "1           3           2           4           /later\n"
            "1           3           2           4           /later/still\n"
            "500         0           100         0           /trees/half\n"
            "Group Update(staff) gid (100) changed to (10000)\n"
            "Group Update(empty) gid (100) changed to (0)\n"
            "Group Update bad line: @bad\n"
            "Passwd Update(ann) uid/gid (500,100) changed to (10001,10000)\n"
            "Passwd Update(empty) uid/gid (500,100) changed to (10001,0)\n"
            "Passwd Update bad line: =bad:1:2:3\n"
            "7           100         500         10001       /a\n");
  const std::string warning = "Warning: skipping /trees/gone: No such file or directory\n";
  EXPECT_EQ(run.err, warning + warning);  // once at the load, once in the report
}

// Refused: the log under any name, a file that cannot be opened, and entries that others have made
// under the name of the report in a directory such as /tmp.
TEST_F(ReportTest, WritesOnlyToTheFileMeantAndReportsWhatItOverwrites) {
  writeFile(kLog, kHeader);
  const char* const arrangement =
      "cd /etc && ln -s orvantadc/idshift.log symbolic && ln orvantadc/idshift.log hard && cd /trees &&"
      "mkdir dir && mkfifo fifo fifo-with-reader && ln -s loop loop && echo precious > victim &&"
      "ln -s ../trees/old link && ln -s created dangling && cd /tmp && echo theirs > file &&"
      "ln -s /trees/victim to-file && ln -s /trees/missing to-nothing && ln -s /trees/dir to-dir &&"
      "chown -h 777:777 * && ln -s /trees/own own-link && mkdir /trees/home && cd /trees/home &&"
      "ln -s ../victim roots && ln ../victim hard && touch file /etc/orvantadc/idshift.lock &&"
      "chown 777 . file";
  ASSERT_EQ(runProgram({"sh", "-c", arrangement}).status, 0);
  const UniqueFd reader(open("/trees/fifo-with-reader", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  for (const char* old : {"/trees/old", "/trees/own"})
    writeFile(old, std::string(1000, 'x'));
  fs::current_path("/trees");
  const std::set<std::string> written = {
      "new", "link", "/trees/dangling", "/tmp/own-link", "/trees/home/file", "/trees/home/new"};
  std::set<std::string> names = {kLog,
                                 "/etc/symbolic",
                                 "/etc/hard",
                                 "/etc/orvantadc/idshift.lock",
                                 "/trees/home/roots",
                                 "/trees/home/hard",
                                 "",
                                 "/trees/none/r",
                                 "/trees/fifo",
                                 "/trees/fifo-with-reader",
                                 "/trees/dir",
                                 "/trees/fresh/",
                                 "/trees/victim/",
                                 "/trees/loop",
                                 "/tmp/to-file",
                                 "/tmp/to-nothing",
                                 "/tmp/to-dir/r",
                                 "/tmp/file"};
  names.insert(written.begin(), written.end());
  for (const std::string& name : names) {
    const bool isWritten = written.contains(name);
    struct stat status = {};
    const bool isThere = stat(name.c_str(), &status) == 0;
    std::string words = isWritten ? "" : "Error: cannot open report file: " + name + "\n";
    if (isThere)
      words.insert(0, "Warning: report file " + name + " already exists - overwriting\n");
    if (name.starts_with("/etc/"))
      words = "Error: not allowed to overwrite private log file " +
              (name.ends_with("lock") ? name : kLog) + "\n";
    const RunResult run = report(name);
    EXPECT_EQ(run.status, isWritten ? 0 : 1) << name;
    EXPECT_EQ(run.err, words);
    EXPECT_TRUE(!isWritten || readFile(name) == "idshift report - domain corp\n") << name;
  }
  EXPECT_EQ(readFile(kLog) + readFile("/trees/victim") + readFile("/tmp/file"),
            kHeader + "precious\ntheirs\n");
  EXPECT_FALSE(exists("/trees/missing") || exists("/trees/dir/r"));
  // A caller may follow a link of the caller's own.
  EXPECT_EQ(report("/trees/home/roots", 777).status, 1);
  ASSERT_EQ(runProgram({"ln", "-s", "file", "/trees/home/his"}, {.uid = 777}).status, 0);
  EXPECT_EQ(report("/trees/home/his", 777).status, 0);
}

TEST_F(ReportTest, TellsWhyThereIsNoReport) {
  ASSERT_EQ(mount("small", "/trees", "tmpfs", 0, "size=4k"), 0);
  writeFile(kLog, kHeader + "/" + std::string(10000, 'a') + ":5:1:500:100:10001:10000\n");
  const RunResult run = report("/trees/r");
  EXPECT_EQ(run.err, "Error: cannot write report file: /trees/r: No space left on device\n");
  EXPECT_EQ(run.status, 1);
  writeFile(kLog, "");
  EXPECT_EQ(report("/tmp/empty").err, "");
  EXPECT_EQ(readFile("/tmp/empty"), "");
  fs::remove(kLog);
  EXPECT_EQ(report("/tmp/none").err,
            "Error: you must do a commit operation before generating a report\n");
  EXPECT_FALSE(exists("/tmp/none"));
}

}  // namespace
