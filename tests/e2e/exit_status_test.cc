// Every exit status that can be reached from outside, and the last word that goes with it. 164 and
// 165 stand for failures that the map builders report by exceptions alone.
#include "driver/exit_status.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <ostream>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/e2e/whole_run.h"

namespace {

struct StatusRow {
  const char* name;
  std::vector<std::string> arguments;
  int status;
  std::string err;  // the whole of standard error
  std::function<void()> arrange = [] {};
  std::optional<uid_t> uid = {};
  std::optional<std::string> out = {};  // the whole of standard output, where it matters
};

std::ostream& operator<<(std::ostream& stream, const StatusRow& row) {
  return stream << row.name;
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

constexpr const char* kNoLogHint =
    "This file should have been created by the last commit operation, however it seems like it was not.  Please check for file permissions as well as for any error messages by the previous commit operation.\n";

const StatusRow kRows[] = {
    {"DryRun", {"/trees"}, kExitSuccess, ""},
    {"ReportThatFails",
     {"-r", "/etc/orvantadc/idshift.log"},
     kExitSuccess,
     "Error: not allowed to overwrite private log file /etc/orvantadc/idshift.log\n",
     [] { writeFile(paths::kPrivateLog, "domain:corp\n", 0600); }},
    {"EmptyDirectoryName",
     {"-c", ""},
     kExitException,
     "Warning: skipping : No such file or directory\nError: basic_string::erase\n"},
    {"Help", {"-U", "-c", "-h"}, kExitSuccess, "", [] {}, {}, kUsage},
    {"HelpDespiteMalformedSettings",
     {"-h"},
     kExitSuccess,
     "",
     [] { addSetting("nonsense"); },
     {},
     kUsage},
    {"Version", {"-v", "-U", "-c"}, kExitSuccess, "", [] {}, {}, "OrvantaDC 5.7.0-207\n"},
    {"OptionsThatExclude", {"-h", "-n", "-x"}, kExitUsage, "", [] {}, {}, kUsage},
    {"IdRange",
     {"-i", "5-"},
     kExitUsage,
     "Error: invalid id-range specification\n",
     [] {},
     {},
     kUsage},
    {"UndoWithCommit",
     {"-U", "-c"},
     kExitUsage,
     "Error: option --undo (-U) cannot be used with --commit (-c), --commit-all (-C) or --report (-r)\n",
     [] {},
     {},
     ""},
    {"MalformedSettings",
     {"-c"},
     kExitException,
     "Error: /etc/orvantadc/orvantadc.conf:2: '=' character not found in line\n",
     [] { addSetting("nonsense"); }},
    {"UnreadableIgnoreList",
     {"/trees"},
     kExitException,
     "Error: /etc: Is a directory\n",
     [] { addSetting("nss.group.ignore = file:/etc"); }},
    {"AnyUserLooks", {"/trees"}, kExitSuccess, "", [] {}, 500},
    {"AnyUserPretends",
     {"-c", "-F", "/trees"},
     kExitLogNotWritable,
     "Error: cannot open private log file /etc/orvantadc/idshift.log  for writing.\n",
     [] {},
     500},
    {"NotRoot",
     {"-c", "/trees"},
     kExitNotRoot,
     "Error: this command should be run by root to change ids\n",
     [] {},
     500},
    {"NotJoined",
     {"/trees"},
     kExitNotJoined,
     "Machine is not joined to any domain.\n",
     [] { writeFile(paths::kSettings, "domain.name =\n"); }},
    {"NoAgent",
     {"/trees"},
     kExitAgentUnavailable,
     "Error: zonagent is not available.\n",
     [] { ASSERT_EQ(::unlink(paths::kAgentSocket), 0); }},
    {"RangeTooSmall",
     {"-i", "501-501", "/trees"},
     kExitIdRangeExhausted,
     "ID-Range is not large enough\n"},
    {"NoPasswd",
     {"/trees"},
     kExitPasswdNotLoaded,
     "Error: cannot load password file /etc/passwd\n",
     [] { ASSERT_EQ(::unlink(paths::kPasswd), 0); }},
    {"NoGroup",
     {"/trees"},
     kExitGroupNotLoaded,
     "Error: cannot load group file /etc/group\n",
     [] { ASSERT_EQ(::unlink(paths::kGroup), 0); }},
    {"UndoWithoutLog",
     {"-U"},
     kExitUndoRefused,
     "Error: cannot undo changes because private log file /etc/orvantadc/idshift.log could not be opened for reading.\n"},
    {"ReportWithoutLog",
     {"-r", "-"},
     kExitReportRefused,
     "Error: cannot create report because private log file /etc/orvantadc/idshift.log could not be opened for reading.\n"},
    {"LogIsADirectory",
     {"-c", "/trees"},
     kExitLogNotWritable,
     "Error: cannot open private log file /etc/orvantadc/idshift.log  for writing.\n",
     [] { ASSERT_EQ(::mkdir(paths::kPrivateLog, 0700), 0); }},
    {"NoUserMap",
     {"-u", "/nowhere", "/trees"},
     kExitUserMapNotLoaded,
     "Error: cannot load user-map file /nowhere\n"},
    {"NoGroupMap",
     {"-g", "/nowhere", "/trees"},
     kExitGroupMapNotLoaded,
     "Error: cannot load group-map file /nowhere\n"},
    {"NoTree",
     {"-c", "/nowhere"},
     kExitWalkFailed,
     "Warning: skipping /nowhere: No such file or directory\nError: cannot opendir: /nowhere: No such file or directory\n"},
};

bool expectsHint(int status) {
  return status == kExitUndoRefused || status == kExitReportRefused;
}

}  // namespace

class ExitStatusOfRun : public WholeRun, public ::testing::WithParamInterface<StatusRow> {};

TEST_P(ExitStatusOfRun, ComesWithItsMessage) {
  const StatusRow& row = GetParam();
  row.arrange();
  RunOptions options;
  options.uid = row.uid;
  const RunResult result = idshift(row.arguments, options);
  EXPECT_EQ(result.status, row.status) << result;
  EXPECT_EQ(result.err, row.err + (expectsHint(row.status) ? kNoLogHint : ""));
  EXPECT_EQ(result.out, row.out.value_or(result.out));
  EXPECT_FALSE(row.status == kExitUsage && exists(paths::kPrivateLog));
}

INSTANTIATE_TEST_SUITE_P(Rows, ExitStatusOfRun, ::testing::ValuesIn(kRows), [](const auto& row) {
  return std::string(row.param.name);
});
