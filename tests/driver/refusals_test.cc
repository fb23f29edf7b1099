// Runs that end early: which status, which words, on which stream, and what is left alone.
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
  };
  for (const StatusRow& row : rows) {
    SCOPED_TRACE(row.name);
    expectResult(run(row.words), row);
    EXPECT_FALSE(exists(kLog));
  }
}

TEST_F(Main2, RestartMakesALogUselessForUndoAndReport) {
  writeFile(kLog, "domain:corp\n", 0600);
  EXPECT_EQ(run({"-U", "-R"}).status, 159);
  EXPECT_EQ(run({"-r", "-", "-R"}).status, 160);
  EXPECT_EQ(readFile(kLog), "domain:corp\n");
}

TEST_F(Main2, AsksForRootOnlyWhereTheDiskChanges) {
  RunOptions asAnn;
  asAnn.uid = 500;
  EXPECT_EQ(run({"-c"}, asAnn).status, 9);
  EXPECT_EQ(run({"-U"}, asAnn).status, 9);
  EXPECT_EQ(run({}, asAnn).status, 0);
  EXPECT_EQ(run({"-r", "-"}, asAnn).status, 160);
  EXPECT_EQ(run({"-c", "-F"}, asAnn).status, 161);
}

TEST_F(Main2, AsksForADomainOnlyWhereAccountsAreCompared) {
  writeFile("/etc/orvantadc/orvantadc.conf", "");
  EXPECT_EQ(run({}).status, 10);
  EXPECT_EQ(run({"-c", "-F"}).status, 10);
  EXPECT_EQ(run({"-U"}).status, 159);
  EXPECT_EQ(run({"-r", "-"}).status, 160);
}

TEST_F(Main2, WhatABuilderThrowsEndsTheRun) {
  zone.misbehave(Fault::CloseInsideAnswer);
  const RunResult lost = run({});
  EXPECT_EQ(lost.status, 13);
  EXPECT_TRUE(lost.err.starts_with("Error: lost connection to zonagent: ")) << lost;

  addSetting("nss.group.ignore = file:/etc");
  expectResult(run({}), {"", {}, 6, "", "Error: /etc: Is a directory\n"});
}
