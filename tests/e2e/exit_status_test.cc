// Every exit status that can be reached from outside, and the last word that goes with it. 164 and
// 165 stand for failures that the map builders report by exceptions alone.
#include "driver/exit_status.h"

#include <ostream>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/e2e/whole_run.h"

namespace {

struct StatusRow {
  struct Run {
    const char* name;
    const char* arguments;  // as the shell takes them
    int status;
    const char* before = ":";  // a command that prepares the machine
    uid_t uid = 0;
  } run;
  std::string err;            // the whole of standard error
  const char* out = nullptr;  // the whole of standard output, where it matters
};

std::ostream& operator<<(std::ostream& stream, const StatusRow& row) {
  return stream << row.run.name;
}

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

const std::string kLogNotOpened =
    " because private log file /etc/orvantadc/idshift.log could not be opened for reading.\n"
    "This file should have been created by the last commit operation, however it seems like it was not.  Please check for file permissions as well as for any error messages by the previous commit operation.\n";

constexpr const char* kLogNotWritable =
    "Error: cannot open private log file /etc/orvantadc/idshift.log  for writing.\n";

constexpr const char* kMalformSettings = "echo nonsense >> /etc/orvantadc/orvantadc.conf";

const StatusRow kRows[] = {
    {{"ReportThatFails", "-r /etc/orvantadc/idshift.log", kExitSuccess,
      "echo domain:corp > /etc/orvantadc/idshift.log"},
     "Error: not allowed to overwrite private log file /etc/orvantadc/idshift.log\n"},
    {{"EmptyDirectoryName", "-c ''", kExitException},
     "Warning: skipping : No such file or directory\nError: basic_string::erase\n"},
    {{"HelpDespiteMalformedSettings", "-U -c -h", kExitSuccess, kMalformSettings}, "", kUsage},
    {{"Version", "-v -U -c", kExitSuccess}, "", "OrvantaDC 5.7.0-207\n"},
    {{"OptionsThatExclude", "-h -n -x", kExitUsage}, "", kUsage},
    {{"IdRange", "-i 5-", kExitUsage}, "Error: invalid id-range specification\n", kUsage},
    {{"UndoWithCommit", "-U -c", kExitUsage},
     "Error: option --undo (-U) cannot be used with --commit (-c), --commit-all (-C) or --report (-r)\n",
     ""},
    {{"MalformedSettings", "-c", kExitException, kMalformSettings},
     "Error: /etc/orvantadc/orvantadc.conf:2: '=' character not found in line\n"},
    {{"AnyUserLooks", "/trees", kExitSuccess, ":", 500}, ""},
    {{"AnyUserPretends", "-c -F /trees", kExitLogNotWritable, ":", 500}, kLogNotWritable},
    {{"NotRoot", "-c /trees", kExitNotRoot, ":", 500},
     "Error: this command should be run by root to change ids\n"},
    {{"NotJoined", "/trees", kExitNotJoined, "echo domain.name = > /etc/orvantadc/orvantadc.conf"},
     "Machine is not joined to any domain.\n"},
    {{"NoAgent", "/trees", kExitAgentUnavailable, "rm /var/orvantadc/daemon"},
     "Error: zonagent is not available.\n"},
    {{"RangeTooSmall", "-i 501-501 /trees", kExitIdRangeExhausted},
     "ID-Range is not large enough\n"},
    {{"NoPasswd", "/trees", kExitPasswdNotLoaded, "rm /etc/passwd"},
     "Error: cannot load password file /etc/passwd\n"},
    {{"NoGroup", "/trees", kExitGroupNotLoaded, "rm /etc/group"},
     "Error: cannot load group file /etc/group\n"},
    {{"UndoWithoutLog", "-U", kExitUndoRefused}, "Error: cannot undo changes" + kLogNotOpened},
    {{"ReportWithoutLog", "-r -", kExitReportRefused},
     "Error: cannot create report" + kLogNotOpened},
    {{"LogIsADirectory", "-c /trees", kExitLogNotWritable, "mkdir /etc/orvantadc/idshift.log"},
     kLogNotWritable},
    {{"NoUserMap", "-u /nowhere /trees", kExitUserMapNotLoaded},
     "Error: cannot load user-map file /nowhere\n"},
    {{"NoGroupMap", "-g /nowhere /trees", kExitGroupMapNotLoaded},
     "Error: cannot load group-map file /nowhere\n"},
    {{"NoTree", "-c /nowhere", kExitWalkFailed},
     "Warning: skipping /nowhere: No such file or directory\nError: cannot opendir: /nowhere: No such file or directory\n"},
};

}  // namespace

class ExitStatusOfRun : public WholeRun, public ::testing::WithParamInterface<StatusRow> {};

TEST_P(ExitStatusOfRun, ComesWithItsMessage) {
  const auto& [run, err, out] = GetParam();
  ASSERT_EQ(shell(run.before).status, 0);
  RunOptions options;
  options.uid = run.uid;
  const RunResult result = shell(binaryPath("idshift") + " " + run.arguments, options);
  EXPECT_EQ(result.status, run.status) << result;
  EXPECT_EQ(result.err, err);
  EXPECT_EQ(result.out, out ? out : result.out);
  EXPECT_FALSE(run.status == kExitUsage && exists(paths::kPrivateLog));
}

INSTANTIATE_TEST_SUITE_P(Rows, ExitStatusOfRun, ::testing::ValuesIn(kRows), [](const auto& row) {
  return std::string(row.param.run.name);
});
