// Dry runs, commits and commit-alls that succeed, and runs that a signal ends.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "services/paths.h"
#include "tests/support/fake_zone.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

namespace {

constexpr const char* kLog = paths::kPrivateLog;

class Runs : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    plant("/trees/t", {"- 500:100 f"});
  }
};

}  // namespace

TEST_F(Runs, VerboseTellsTheOptionsAndACommitWithoutConflictsBeginsTheLog) {
  bool asksSyslog = false;  // the option changes the level of syslog only
  const RunResult verbose = runTraced(
      {binaryPath("idshift"), "-V", "-i", "7", "-u", "/dev/null", "/trees/t", "/trees/./t/"},
      [&](const SystemCall& call) {
        asksSyslog |= call.number == __NR_socket && (call.arguments[1] & 15) == SOCK_DGRAM;
        return CallVerdict{};
      });
  EXPECT_TRUE(verbose.status == 0 && asksSyslog) << verbose;
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

  setZone("ann:x:500:100:::\n", "users:x:100:\n");
  const RunResult result = idshift({"-C", "/trees"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out,
            "No user-id or group-id conflicts were found, change nothing.\n0 file(s) changed\n");
  EXPECT_EQ(readFile(kLog), "domain:corp\n");
  // A conflict of a group alone is a conflict, too.
  setZone("ann:x:500:100:::\n", "users:x:700:\n");
  EXPECT_EQ(idshift({"-c", "/trees"}).out, "1 file(s) changed\n");
}

TEST_F(Runs, RelativeNamesCountFromWhereTheLastWalkEnded) {
  writeFile("/trees/a/b/f", "");
  writeFile("/trees/b/f", "");
  ASSERT_EQ(shell("mkdir /trees/a/x; chown -R 500:100 /trees/a/b/f /trees/b/f").status, 0);
  const std::string program = binaryPath("idshift");
  const RunResult one = shell("cd /trees; exec " + program + " -c -S -r report a/x b x/../b/.");
  EXPECT_EQ(one.status, 0) << one;
  EXPECT_EQ(one.out, "1 file(s) changed\n");
  EXPECT_EQ(one.err, "Skipping Already Visited (Top) Dir: /trees/a/b\n");
  EXPECT_EQ(ownerOf("/trees/a/b/f"), "10001:10000");
  EXPECT_EQ(ownerOf("/trees/b/f"), "500:100");
  EXPECT_TRUE(exists("/trees/a/report"));

  // Without a working directory a name stays relative.
  const RunResult lost = shell("cd /trees/a/x; rmdir /trees/a/x; exec " + program + " -c b");
  EXPECT_EQ(lost.status, 6) << lost;
  EXPECT_EQ(lost.err,
            "Warning: skipping b: No such file or directory\nError: basic_string::erase\n");
}

TEST_F(Runs, CommitAllBringsTheAccountFilesInLine) {
  // The new ids of ann, bob and the groups are old ids of others. A user whose uid changes gets the
  // primary gid of the zone if the zone has one for the user, whatever gid the line has. A user
  // whose uid stays follows the group.
  setPasswd(
      "ann:x:500:100::/:/bin/sh\nbob:x:501:200::/:/bin/sh\ncid:x:502:300::/:/bin/sh\n"
      "ann2:x:500:77::/:/bin/sh\ndan:x:503:999::/:/bin/sh\neve:x:504:100::/:/bin/sh\n"
      "fay:x:505:998::/:/bin/sh\ngus:x:506:100::/:/bin/sh\n");
  setGroup("three:x:300:\none:x:100:bob\ntwo:x:200:ann,bob\ntwin:x:100:\n");
  setZone(
      "ann:x:501:300:::\nbob:x:502:200:::\ncid:x:502:300:::\nsue:x:504:1:::\ntom:x:505:1:::\n"
      "gusz:x:506:300:::\n",
      "one:x:200:\ndeux:x:300:\nthree:x:300:\nfour:x:999:\n");
  writeFile("/etc/users", "gus gusz\n");
  writeFile("/etc/groups", "two deux\n");
  const auto commitAll = [](const char* letters) {
    return idshift({letters, "-u", "/etc/users", "-g", "/etc/groups", "/trees/t"});
  };
  const RunResult pretended = commitAll("-CF");
  EXPECT_EQ(pretended.out, "chown /trees/t/f [500/100] -> [501/300]\n0 file(s) changed\n");
  EXPECT_EQ(pretended.err, "");
  EXPECT_EQ(readFile(kLog), "domain:corp\n");

  const RunResult result = commitAll("-C");
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.out, "1 file(s) changed\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(readFile("/etc/group"),
            "three:x:300:\none:x:200:bob\ntwo:x:300:ann,bob\ntwin:x:100:\n");
  EXPECT_EQ(readFile("/etc/passwd"),
            "ann:x:501:300::/:/bin/sh\nbob:x:502:200::/:/bin/sh\ncid:x:502:300::/:/bin/sh\n"
            "ann2:x:501:300::/:/bin/sh\ndan:x:503:50999::/:/bin/sh\neve:x:50504:200::/:/bin/sh\n"
            "fay:x:50505:998::/:/bin/sh\ngus:x:506:200::/:/bin/sh\n");
  const std::string log = readFile(kLog);
  EXPECT_EQ(
      log.substr(log.find('@')),
      "@one:100:200\n@two:200:300\n=ann:500:100:501:300\n=bob:501:200:502:200\n"
      "=ann2:500:77:501:300\n=dan:503:999:503:50999\n=eve:504:100:50504:200\n=fay:505:998:50505:998\n"
      "=gus:506:100:506:200\n");
}

TEST_F(Runs, AFailedAccountUpdateIsPassedOverAndAFailedWalkLeavesTheAccountsAlone) {
  ASSERT_EQ(mkdir("/etc/passwd+", 0700), 0);  // in the place of the new passwd file
  const std::string passwd = readFile("/etc/passwd");
  const std::string group = readFile("/etc/group");
  EXPECT_EQ(idshift({"-C", "/trees/t", "/no", "/trees"}).status, 166);
  EXPECT_EQ(ownerOf("/trees/t/f"), "10001:10000");
  EXPECT_EQ(readFile("/etc/group"), group);

  const RunResult result = idshift({"-C", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.err,
            "Error: passwd file update failed for user: ann\n"
            "Error: passwd file update failed for user: bob\n"
            "Error: passwd file update failed for user: cid\n");
  EXPECT_EQ(readFile("/etc/passwd"), passwd);
  const std::string log = readFile(kLog);
  EXPECT_EQ(log.substr(log.find('@')), "@users:100:10000\n@bobs:101:50101\n");
}

// ---- a log that is replaced by another

TEST_F(Runs, AFormerLogIsKeptAndComesBackWhenNothingIsRecorded) {
  const std::string former = "domain:elsewhere\n#/g:1:2:3:4:5:6\n/f:1:2:3:4:5:6\n";
  const auto logFiles = [] {
    std::string names;
    for (const auto& [name, state] : takeSnapshot("/etc/orvantadc").entries)
      names += name.starts_with("idshift.log") ? name + " " : "";
    return names;
  };
  const struct {
    const char* arguments = nullptr;
    int status = 0;
    const char* before = ":";
  } idle[] = {{"-c -F -R /trees/t", 0},
              {"-c -F /trees/t", 0},
              {"-c -R -u /typo /trees/t", 162},
              {"-c -R /trees/none", 166},
              {"-c /trees/t", 13, "rm /var/orvantadc/daemon"}};
  for (const auto& row : idle) {
    SCOPED_TRACE(row.arguments);
    writeFile(kLog, former, 0600);
    const std::string program = binaryPath("idshift") + " " + row.arguments;
    EXPECT_EQ(shell(row.before + ("; exec " + program)).status, row.status);
    EXPECT_EQ(readFile(kLog), former);
    EXPECT_EQ(logFiles(), "idshift.log ");
  }
  TearDown();
  SetUp();
  // A log whose changes are all undone, or that has none, is not kept.
  for (const std::string text : {"domain:elsewhere\n#/f:1:2:3:4:5:6\n", "domain:corp\n", ""}) {
    writeFile(kLog, text);
    EXPECT_EQ(idshift({"-c", "-R", "/trees/none"}).status, 166);
    EXPECT_EQ(readFile(kLog), "domain:corp\n");
  }
  for (const char* kept : {"idshift.log idshift.log.index idshift.log.old ",
                           "idshift.log idshift.log.index idshift.log.old idshift.log.old.1 "
                           "idshift.log.old.1.index "}) {
    writeFile(kLog, former);
    ASSERT_EQ(shell("chown 500:100 /trees/t/f").status, 0);
    // The report of the same run shows the new log.
    EXPECT_EQ(countOf(idshift({"-c", "-R", "-r", "-", "/trees/t"}).out, "/f\n"), 1U);
    EXPECT_EQ(logFiles(), kept);
    EXPECT_EQ(readFile(kLog + std::string(".old")), former);
  }
}

// ---- signals

TEST_F(Runs, ASignalWhileTheLogIsReadCostsNoLog) {
  writeFile(kLog, "domain:elsewhere\n!Thu\n/f:1:2:3:4:5:6\n", 0600);
  const TreeSnapshot before = takeSnapshot("/etc");
  const auto opensLog = [](const SystemCall& call) {
    return call.number == __NR_openat && call.text(1) == kLog;
  };
  const auto terminate = [](const SystemCall& call) {
    kill(call.pid, SIGTERM);
    return CallVerdict{};
  };
  const RunResult result = runTraced({binaryPath("idshift"), "-C"}, atCall(opensLog, 1, terminate));
  EXPECT_EQ(result.signal, SIGTERM) << result;
  EXPECT_EQ(result.out, "0 file(s) changed\n");
  EXPECT_TRUE(sameTree(before, takeSnapshot("/etc")));
}

// ---- main: exceptions, streams and signals

TEST_F(Runs, MainSparesClosedStreamsDiesOfTheSignalAndReportsALostAgent) {
  const std::string program = binaryPath("idshift");
  // A stream that the caller had closed must not become a file of the tool, or messages would go
  // into that file.
  const RunResult closed = runTraced(
      {"/bin/sh", "-c", "exec " + program + " -c -V /trees/t <&- >&- 2>&-"},
      [](const SystemCall& call) {
        const bool isStream = call.number == __NR_write && call.arguments[0] <= STDERR_FILENO;
        EXPECT_TRUE(!isStream || call.descriptorPath(0) == "/dev/null");
        return CallVerdict{};
      });
  EXPECT_EQ(closed.status, 0) << closed;
  EXPECT_EQ(ownerOf("/trees/t/f"), "10001:10000");

  stopAgent();
  FakeZone zone;
  zone.misbehave(Fault::Hang).start();
  RunOptions lessThanTheAgentHas;
  lessThanTheAgentHas.timeoutSeconds = 8;
  const RunResult killed = shell(  // SIGHUP, which the parent ignored, stays ignored
      "trap '' HUP; " + program +
          " -c & sleep 0.5; kill -HUP $!; sleep 0.1; kill -TERM $!; wait $!; echo $?",
      lessThanTheAgentHas);
  EXPECT_EQ(killed.out, "0 file(s) changed\n143\n");
  // No message blames the agent. The shell prints its own word, unless the program ends before the
  // shell waits.
  EXPECT_TRUE(killed.err.empty() || killed.err == "Terminated\n") << killed.err;

  zone.misbehave(Fault::CloseInsideAnswer);
  const RunResult lost = idshift({});
  EXPECT_EQ(lost.status, 13);
  EXPECT_TRUE(lost.err.starts_with("Error: lost connection to zonagent: ")) << lost;
}

// Records are synced before the changes, the state of their section and marks of undone lines after
// them.
TEST_F(Runs, ASuccessIsOnTheDisk) {
  const auto syncsOf = [](const std::vector<std::string>& argv) {
    // Syncs count from the first change on. Before, a sync may come because the last one was a
    // second ago.
    bool changed = false;
    std::vector<long> syncs;
    runTraced(argv, [&](const SystemCall& call) {
      changed |= call.number == __NR_fchownat || call.number == __NR_lchown;
      const bool isSync =
          call.number == __NR_fdatasync || call.number == __NR_syncfs || call.number == __NR_sync;
      if (changed && isSync && (syncs.empty() || syncs.back() != call.number))
        syncs.push_back(call.number);
      return CallVerdict{};
    });
    return syncs;
  };
  using Calls = std::vector<long>;
  const std::vector<std::string> commit = {binaryPath("idshift"), "-c", "/trees/t"};
  EXPECT_EQ(syncsOf(commit), (Calls{__NR_fdatasync, __NR_syncfs, __NR_fdatasync}));
  EXPECT_EQ(syncsOf({commit[0], "-U"}), (Calls{__NR_syncfs, __NR_fdatasync}));
  // The root of a mount is on another device than its parent directory, so its file system is not
  // known and sync() is called. A change below the root makes the file system known.
  ASSERT_EQ(shell("mkdir /trees/t/m; mount -t tmpfs -o uid=500 none /trees/t/m").status, 0);
  EXPECT_EQ(syncsOf(commit), (Calls{__NR_fdatasync, __NR_syncfs, __NR_sync, __NR_fdatasync}));
  ASSERT_EQ(shell(commit[0] + " -U; : > /trees/t/m/f; chown 500 /trees/t/m/f").status, 0);
  EXPECT_EQ(syncsOf(commit), (Calls{__NR_fdatasync, __NR_syncfs, __NR_fdatasync}));
}
