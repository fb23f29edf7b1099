// Runs that end early, in words and on streams that nothing else compares.
#include "tests/driver/main2_fixture.h"

namespace {

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

}  // namespace

TEST_F(Main2, RefusesBeforeItTouchesTheLog) {
  const struct {
    Words words;
    int status;
    const char* out;
    const char* err;
  } rows[] = {
      {{"-U", "-c", "-h"}, 0, kUsage, ""},
      {{"-h", "-n", "-x"}, 7, kUsage, ""},
      {{"-v", "-U", "-c"}, 0, "OrvantaDC 5.7.0-207\n", ""},
      {{"-i", "5-"}, 7, kUsage, "Error: invalid id-range specification\n"},
  };
  for (const auto& row : rows) {
    const RunResult result = run(row.words);
    EXPECT_EQ(result.status, row.status) << result;
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.err);
  }
  EXPECT_EQ(run({"-U", "-c"}).out, "");
  EXPECT_FALSE(exists("/etc/orvantadc/idshift.log"));
}

TEST_F(Main2, AnotherUserMayLookAndPretend) {
  RunOptions asAnn;
  asAnn.uid = 500;
  EXPECT_EQ(run({}, asAnn).status, 0);
  EXPECT_EQ(run({"-c", "-F"}, asAnn).status, 161);
}

TEST_F(Main2, WhatABuilderThrowsEndsTheRun) {
  zone.misbehave(Fault::CloseInsideAnswer);
  const RunResult lost = run({});
  EXPECT_EQ(lost.status, 13);
  EXPECT_TRUE(lost.err.starts_with("Error: lost connection to zonagent: ")) << lost;

  addSetting("nss.group.ignore = file:/etc");
  const RunResult unreadable = run({});
  EXPECT_EQ(unreadable.status, 6);
  EXPECT_EQ(unreadable.err, "Error: /etc: Is a directory\n");
}
