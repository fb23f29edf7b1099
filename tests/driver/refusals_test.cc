// Runs that end early: which status, which words, on which stream, and what is left alone.
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/driver/main2_fixture.h"

namespace {

constexpr const char* kLog = "/etc/orvantadc/idshift.log";
constexpr const char* kUsage =
    "usage: idshift [options] directory...\n"
    "\n"
    "options:\n"
    "  -c, --commit         Commit the changes to the filesystem\n"
    "  -C, --commit-all     Commit the files and update passwd & group\n"
    "  -r, --report file    Write report of all files changed\n"
    "  -u, --usermap file   Name of local to zone user name map file\n"
    "  -g, --groupmap file  Name of local to zone group name map file\n"
    "  -i, --id [# | #-#]   Range of UID/GIDs to use for conflicts\n"
    "  -x, --xdev           Don't descend directories on other filesystems\n"
    "  -f, --follow         Follow symbolic links\n"
    "  -n, --nfs            Descend into directories on NFS filesystem.\n"
    "  -R, --restart        Force a restart (ignore existing log file)\n"
    "  -U, --undo           Undo a previous shiftid - restore old uid/gids\n"
    "  -V, --verbose        List files as they are processed\n"
    "  -v, --version        print version information\n"
    "  -h, --help           print this help information and exit\n"
    "\n";
constexpr const char* kNoLogToUndo =
    "Error: cannot undo changes because private log file /etc/orvantadc/idshift.log could not be "
    "opened for reading.\n"
    "This file should have been created by the last commit operation, however it seems like it was "
    "not.  Please check for file permissions as well as for any error messages by the previous "
    "commit operation.\n";
constexpr const char* kNoLogToReport =
    "Error: cannot create report because private log file /etc/orvantadc/idshift.log could not be "
    "opened for reading.\n"
    "This file should have been created by the last commit operation, however it seems like it was "
    "not.  Please check for file permissions as well as for any error messages by the previous "
    "commit operation.\n";

struct StatusRow {
  const char* name;
  Words words;
  int status;
  std::string out;
  std::string err;
};

void expectResult(const RunResult& result, const StatusRow& row) {
  EXPECT_EQ(result.status, row.status) << result;
  EXPECT_EQ(result.out, row.out);
  EXPECT_EQ(result.err, row.err);
}

}  // namespace

TEST_F(Main2, RefusesBeforeItTouchesTheLog) {
  const StatusRow rows[] = {
      {"help wins", {"-U", "-c", "-h"}, 0, kUsage, ""},
      {"but not over the parser", {"-h", "-n", "-x"}, 7, kUsage, ""},
      {"version", {"-v", "-U", "-c"}, 0, "OrvantaDC 5.7.0-207\n", ""},
      {"range", {"-i", "5-"}, 7, kUsage, "Error: invalid id-range specification\n"},
      {"undo and commit",
       {"-U", "-c"},
       7,
       "",
       "Error: option --undo (-U) cannot be used with --commit (-c), --commit-all (-C) or "
       "--report (-r)\n"},
      {"undo without log", {"-U"}, 159, "", kNoLogToUndo},
      {"report without log", {"-r", "-"}, 160, "", kNoLogToReport},
  };
  for (const StatusRow& row : rows) {
    SCOPED_TRACE(row.name);
    expectResult(run(row.words), row);
    EXPECT_FALSE(exists(kLog));
  }
}

TEST_F(Main2, RestartMakesALogUselessForUndoAndReport) {
  writeFile(kLog, "domain:corp\n", 0600);
  expectResult(run({"-U", "-R"}), {"", {}, 159, "", kNoLogToUndo});
  expectResult(run({"-r", "-", "-R"}), {"", {}, 160, "", kNoLogToReport});
  EXPECT_EQ(readFile(kLog), "domain:corp\n");
}

TEST_F(Main2, AsksForRootOnlyWhereTheDiskChanges) {
  RunOptions asAnn;
  asAnn.uid = 500;
  const char* kRefusal = "Error: this command should be run by root to change ids\n";
  expectResult(run({"-c"}, asAnn), {"", {}, 9, "", kRefusal});
  expectResult(run({"-U"}, asAnn), {"", {}, 9, "", kRefusal});
  EXPECT_EQ(run({}, asAnn).status, 0);
  EXPECT_EQ(run({"-c", "-F"}, asAnn).status, 161);
}

TEST_F(Main2, StatusesOfAMachineThatIsNotReady) {
  const char* kNotJoined = "Machine is not joined to any domain.\n";
  const struct {
    std::function<void()> spoil;
    StatusRow row;
  } cases[] = {
      {[] { writeFile("/etc/orvantadc/orvantadc.conf", ""); },
       {"commit, not joined", {"-c"}, 10, "", kNotJoined}},
      {[] { writeFile("/etc/orvantadc/orvantadc.conf", ""); },
       {"dry run, not joined", {}, 10, "", kNotJoined}},
      {[] { unlink("/etc/passwd"); },
       {"passwd", {}, 157, "", "Error: cannot load password file /etc/passwd\n"}},
      {[] { unlink("/etc/group"); },
       {"group", {"-U"}, 158, "", "Error: cannot load group file /etc/group\n"}},
      {[] { mkdir(kLog, 0700); },
       {"log",
        {"-c"},
        161,
        "",
        "Error: cannot open private log file /etc/orvantadc/idshift.log  for writing.\n"}},
      {[] {},
       {"user map", {"-u", "/no", "-g", "/no"}, 162, "", "Error: cannot load user-map file /no\n"}},
      {[] {}, {"group map", {"-g", "/no"}, 163, "", "Error: cannot load group-map file /no\n"}},
      {[] { unlink("/var/orvantadc/daemon"); },
       {"no agent", {}, 13, "", "Error: zonagent is not available.\n"}},
      {[] { setPasswd("zed:x:10001:0::/:/bin/sh\n"); },  // ann's uid in the zone; no id is free
       {"range", {"-i", "501-501"}, 156, "", "ID-Range is not large enough\n"}},
      {[] { addSetting("nss.group.ignore = file:/etc"); },
       {"other exception", {}, 6, "", "Error: /etc: Is a directory\n"}},
      {[] {},
       {"walk",
        {"-c", "/no"},
        166,
        "",
        "Warning: skipping /no: No such file or directory\n"
        "Error: cannot opendir: /no: No such file or directory\n"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.row.name);
    SetUp();
    each.spoil();
    expectResult(run(each.row.words), each.row);
  }
}
