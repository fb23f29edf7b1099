// Runs that do their work: dry run, commit, commit-all, and runs that a signal ends.
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "services/interrupt.h"
#include "tests/driver/main2_fixture.h"
#include "tests/support/tracer.h"

namespace {

constexpr const char* kLog = "/etc/orvantadc/idshift.log";

}  // namespace

TEST_F(Main2, AVerboseDryRunTellsTheOptionsAndTheFiles) {
  const RunResult verbose = run({"-V", "-i", "7", "-u", "/dev/null", "/trees/t", "/trees/./t/"});
  EXPECT_EQ(verbose.status, 0) << verbose;
  EXPECT_EQ(verbose.err,
            "Input Options:\n"
            "--------------------\n"
            "commit: false\n"
            "commitAll : false \n"
            "reportFiles: 0 \n"
            "userMapFile: /dev/null\n"
            "groupMapFile: 0 \n"
            "newIDRange: 7 ..4294967295\n"
            "follow: false \n"
            "xdev: false \n"
            "restart: false\n"
            "undo: false \n"
            "debug:  false\n"
            "verbose: true \n"
            "directories (2)\n"
            "   /trees/t\n"
            "   /trees/./t/\n"
            "checking /trees/t/f ...\n"
            "changed ownership of /trees/t/f\n");
  EXPECT_EQ(ownerOf("/trees/t/f"), "500:100");
}

TEST_F(Main2, ACommitWithoutConflictsStillBeginsTheLog) {
  zone.user("ann", 500, 100).group("staff", 100);
  const RunResult result = run({"-C", "/trees"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out,
            "No user-id or group-id conflicts were found, change nothing.\n0 file(s) changed\n");
  EXPECT_EQ(readFile(kLog), "domain:corp\n");
}

TEST_F(Main2, RelativeNamesCountFromWhereTheWalkBeforeThemEnded) {
  tree("/trees", {{"a", 'd', 0755, 0, 0, ""},
                  {"a/x", 'd', 0755, 0, 0, ""},
                  {"a/b", 'd', 0755, 0, 0, ""},
                  {"a/b/f", '-', 0644, 500, 100, ""},
                  {"b", 'd', 0755, 0, 0, ""},
                  {"b/f", '-', 0644, 500, 100, ""}});
  RunOptions inTrees;
  inTrees.cwd = "/trees";
  const RunResult one = run({"-c", "-S", "-r", "report", "a/x", "b", "x/../b/."}, inTrees);
  EXPECT_EQ(one.status, 0) << one;
  EXPECT_EQ(one.out, "1 file(s) changed\n");
  EXPECT_EQ(one.err, "Skipping Already Visited (Top) Dir: /trees/a/b\n");
  EXPECT_EQ(ownerOf("/trees/a/b/f"), "10001:10000");
  EXPECT_EQ(ownerOf("/trees/b/f"), "500:100");
  EXPECT_TRUE(exists("/trees/a/report"));

  // Where there is no working directory to tell, a name stays relative.
  const RunResult lost =
      runProgram({"/bin/sh", "-c",
                  "cd /trees/a/x; rmdir /trees/a/x; exec " + binaryPath("idshift") + " -c b"});
  EXPECT_EQ(lost.status, 6) << lost;
  EXPECT_EQ(lost.err,
            "Warning: skipping b: No such file or directory\nError: basic_string::erase\n");
}

TEST_F(Main2, CommitAllBringsTheAccountFilesInLine) {
  // Every new id is somebody's old one.
  setPasswd(
      "ann:x:500:100::/:/bin/sh\nbob:x:501:200::/:/bin/sh\ncid:x:502:300::/:/bin/sh\n"
      "dan:x:503:999::/:/bin/sh\n");
  setGroup("three:x:300:\none:x:100:bob\ntwo:x:200:ann,bob\ntwin:x:100:\n");
  zone.user("ann", 501, 300).user("bob", 502, 200).user("cid", 502, 300);
  zone.group("one", 200).group("two", 300).group("three", 300);

  const RunResult pretended = run({"-C", "-F", "/trees/t"});
  EXPECT_EQ(pretended.out, "chown /trees/t/f [500/100] -> [501/300]\n0 file(s) changed\n");
  EXPECT_EQ(pretended.err, "");
  EXPECT_EQ(readFile(kLog), "domain:corp\n");

  const RunResult result = run({"-C", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, "1 file(s) changed\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(readFile("/etc/group"),
            "three:x:300:\none:x:200:bob\ntwo:x:300:ann,bob\ntwin:x:100:\n");
  EXPECT_EQ(readFile("/etc/passwd"),
            "ann:x:501:300::/:/bin/sh\nbob:x:502:200::/:/bin/sh\ncid:x:502:300::/:/bin/sh\n"
            "dan:x:503:999::/:/bin/sh\n");
  const std::string log = readFile(kLog);
  EXPECT_EQ(log.substr(log.find('@')),
            "@one:100:200\n@two:200:300\n=ann:500:100:501:300\n=bob:501:200:502:200\n");
}

TEST_F(Main2, AFailedAccountUpdateIsReportedAndPassedOver) {
  mkdir("/etc/passwd+", 0700);  // where the new passwd file would be written
  const std::string passwd = readFile("/etc/passwd");
  const RunResult result = run({"-C", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, "1 file(s) changed\n");
  EXPECT_EQ(result.err, "Error: passwd file update failed for user: ann\n");
  EXPECT_EQ(readFile("/etc/passwd"), passwd);
  const std::string log = readFile(kLog);
  EXPECT_EQ(log.substr(log.find('@')), "@staff:100:10000\n");
}

TEST_F(Main2, AFailedWalkLeavesTheAccountFilesAlone) {
  const TreeSnapshot before = takeSnapshot("/etc");
  EXPECT_EQ(run({"-C", "/trees/t", "/no", "/trees"}).status, 166);
  EXPECT_EQ(ownerOf("/trees/t/f"), "10001:10000");
  EXPECT_EQ(takeSnapshot("/etc").at("passwd"), before.at("passwd"));
  EXPECT_EQ(takeSnapshot("/etc").at("group"), before.at("group"));
}

// ---- signals

TEST_F(Main2, ASignalBeforeTheLogIsOpenedCostsNoLog) {
  writeFile(kLog, "domain:elsewhere\n!Thu\n/f:1:2:3:4:5:6\n", 0600);
  const TreeSnapshot before = takeSnapshot("/etc");
  const RunResult result = runInChild([] {
    interrupt::install();
    raise(SIGTERM);
    return callMain2({"-C"});
  });
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, "0 file(s) changed\n");
  EXPECT_TRUE(sameTree(before, takeSnapshot("/etc")));
}

// ---- main: the net and the edge to the system

TEST_F(Main2, AnAnswerThatIsCutOffEndsTheRun) {
  zone.misbehave(Fault::CloseInsideAnswer);
  const RunResult lost = run({});
  EXPECT_EQ(lost.status, 13);
  EXPECT_TRUE(lost.err.starts_with("Error: lost connection to zonagent: ")) << lost;
}

TEST_F(Main2, MainDiesOfThePendingSignalAndSparesClosedStreams) {
  const std::string idshift = binaryPath("idshift");
  const RunResult closed = runProgram({"/bin/sh", "-c", idshift + " -c -V /trees/t <&- >&- 2>&-"});
  EXPECT_EQ(closed.status, 0) << closed;
  const std::string log = readFile(kLog);
  EXPECT_EQ(log.find("file(s)"), std::string::npos) << log;
  EXPECT_EQ(log.find("checking"), std::string::npos) << log;
  EXPECT_EQ(ownerOf("/trees/t/f"), "10001:10000");

  zone.misbehave(Fault::Hang);
  RunOptions lessThanTheAgentHas;
  lessThanTheAgentHas.timeoutSeconds = 8;
  const RunResult killed =
      runProgram({"/bin/sh", "-c", idshift + " -c & sleep 0.5; kill -TERM $!; wait $!; echo $?"},
                 lessThanTheAgentHas);
  EXPECT_EQ(killed.out, "0 file(s) changed\n143\n");
  // The agent is not blamed. The shell has its word, unless the program ends before it waits.
  EXPECT_TRUE(killed.err.empty() || killed.err == "Terminated\n") << killed.err;
}

TEST_F(Main2, ASuccessIsOnTheDisk) {
  const std::vector<std::string> commit = {binaryPath("idshift"), "-c", "/trees/t"};
  const std::vector<std::string> undo = {binaryPath("idshift"), "-U"};
  // Records go to the disk before the changes, marks of undone lines behind them.
  for (const auto& [argv, calls] : {std::pair{commit, std::vector{__NR_fdatasync, __NR_syncfs}},
                                    std::pair{undo, std::vector{__NR_syncfs, __NR_fdatasync}}}) {
    for (const long failing : calls) {
      unlink(kLog);
      ASSERT_EQ(chown("/trees/t/f", 500, 100), 0);
      if (argv == undo) {
        ASSERT_EQ(runProgram(commit).status, 0);
      }
      std::vector<int> seen;
      const TracedResult result = runTraced(argv, [&](const SystemCall& call) -> CallVerdict {
        const bool isSync = call.number == __NR_fdatasync || call.number == __NR_syncfs;
        if (isSync && (seen.empty() || seen.back() != call.number))
          seen.push_back(static_cast<int>(call.number));
        return {call.number == failing ? CallVerdict::kFail : CallVerdict::kContinue, EIO};
      });
      EXPECT_EQ(seen, calls);
      EXPECT_EQ(result.status, 6);
      EXPECT_TRUE(result.err.ends_with(
          "Error: cannot bring private log file /etc/orvantadc/idshift.log and the changes to "
          "the disk: Input/output error\n"));
      EXPECT_EQ(result.out, "1 file(s) changed\n");
    }
  }
}
