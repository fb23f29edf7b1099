// Every exit status that can be reached from outside, with its message. 164 and 165 cannot be
// reached: the map builders report their failures by exceptions.
#include "driver/exit_status.h"

#include <regex>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/support/whole_run.h"

namespace {

struct StatusRow {
  const char* arguments;  // as in a shell
  int status;
  std::string err;           // the whole of standard error
  const char* before = ":";  // a command that prepares the machine
  uid_t uid = 0;
  const char* out = "[^]*";  // a pattern for the whole of standard output
};

constexpr const char* kUsage = "usage: idshift [^]*";

const std::string kLogNotOpened =
    " because private log file /etc/orvantadc/idshift.log could not be opened for reading.\n"
    "This file should have been created by the last commit operation, however it seems like it was not.  Please check for file permissions as well as for any error messages by the previous commit operation.\n";

constexpr const char* kLogNotWritable =
    "Error: cannot open private log file /etc/orvantadc/idshift.log  for writing.\n";

constexpr const char* kMalformSettings = "echo nonsense >> /etc/orvantadc/orvantadc.conf";

// The user owns /trees/home, which has a link that root made and links that the user made. /tmp is
// sticky.
constexpr const char* kPlantLinks =
    "mkdir -p /trees/home /trees/real/dir && ln -s /trees/real /trees/home/roots &&"
    "ln -s /trees/real /trees/ours && ln -s /trees/real /tmp/ours && ln -s /trees/real /tmp/his &&"
    "chown -h 500:100 /trees/home /tmp/his && chmod 1777 /tmp";

const std::string kLoop = "Error: cannot opendir: ";
constexpr const char* kLoopEnd = ": Too many levels of symbolic links\n";

const StatusRow kRows[] = {
    // A report that cannot be written.
    {"-r /etc/orvantadc/idshift.log", kExitSuccess,
     "Error: not allowed to overwrite private log file /etc/orvantadc/idshift.log\n",
     "echo domain:corp > /etc/orvantadc/idshift.log"},
    {"-U -c -h", kExitSuccess, "", kMalformSettings, 0, kUsage},
    {"-v -U -c", kExitSuccess, "", kMalformSettings, 0, "OrvantaDC 5\\.7\\.0-207\n"},
    {"/trees", kExitSuccess, "", ":", 500},  // anybody may look
    {"-c ''", kExitException,
     "Warning: skipping : No such file or directory\nError: basic_string::erase\n"},
    {"-c", kExitException,
     "Error: /etc/orvantadc/orvantadc.conf:2: '=' character not found in line\n", kMalformSettings},
    {"-h -n -x", kExitUsage, "", ":", 0, kUsage},
    {"-q", kExitUsage, "", ":", 0, kUsage},
    {"-i 5-", kExitUsage, "Error: invalid id-range specification\n", ":", 0, kUsage},
    {"-U -c", kExitUsage,
     "Error: option --undo (-U) cannot be used with --commit (-c), --commit-all (-C) or --report (-r)\n",
     ":", 500, ""},
    {"-c /trees", kExitNotRoot, "Error: this command should be run by root to change ids\n", ":",
     500},
    {"/trees", kExitNotJoined, "Machine is not joined to any domain.\n",
     "echo domain.name = > /etc/orvantadc/orvantadc.conf"},
    {"/trees", kExitAgentUnavailable, "Error: zonagent is not available.\n",
     "rm /var/orvantadc/daemon"},
    {"-i 501-501 /trees", kExitIdRangeExhausted, "ID-Range is not large enough\n"},
    {"/trees", kExitPasswdNotLoaded, "Error: cannot load password file /etc/passwd\n",
     "rm /etc/passwd"},
    {"/trees", kExitGroupNotLoaded, "Error: cannot load group file /etc/group\n", "rm /etc/group"},
    {"-U", kExitUndoRefused, "Error: cannot undo changes" + kLogNotOpened},
    {"-r -", kExitReportRefused, "Error: cannot create report" + kLogNotOpened},
    {"-c /trees", kExitLogNotWritable, kLogNotWritable, "mkdir /etc/orvantadc/idshift.log"},
    {"-c -F /trees", kExitLogNotWritable, kLogNotWritable, ":", 500},  // anybody may pretend
    {"-u / /trees", kExitUserMapNotLoaded, "Error: cannot load user-map file /\n"},
    {"-g /nowhere /trees", kExitGroupMapNotLoaded, "Error: cannot load group-map file /nowhere\n"},
    {"-c /nowhere", kExitWalkFailed,
     "Warning: skipping /nowhere: No such file or directory\nError: cannot opendir: /nowhere: No such file or directory\n"},
    // Trees that are, or lie behind, a link that somebody besides root may have made.
    {"-c /trees/home/roots", kExitWalkFailed, kLoop + "/trees/home/roots" + kLoopEnd, kPlantLinks},
    {"-c /trees/home/roots/dir", kExitWalkFailed, kLoop + "/trees/home/roots/dir" + kLoopEnd,
     kPlantLinks},
    {"-c /tmp/his", kExitWalkFailed, kLoop + "/tmp/his" + kLoopEnd, kPlantLinks},
    {"-c /trees/ours /tmp/ours/dir", kExitSuccess, "", kPlantLinks},
};

using ExitStatusOfRun = WholeRun;

}  // namespace

TEST_F(ExitStatusOfRun, Rows) {
  for (const StatusRow& row : kRows) {
    SCOPED_TRACE(row.arguments);
    TearDown();
    SetUp();
    ASSERT_EQ(shell(row.before).status, 0);
    // A copy, because only root may run programs that were built under a strict umask.
    writeFile("/var/idshift", readFile(binaryPath("idshift")), 0755);
    const RunResult result = shell(std::string("/var/idshift ") + row.arguments, {.uid = row.uid});
    EXPECT_EQ(result.status, row.status) << result;
    EXPECT_EQ(result.err, row.err);
    EXPECT_TRUE(std::regex_match(result.out, std::regex(row.out))) << result;
    EXPECT_FALSE(row.status == kExitUsage && exists(paths::kPrivateLog));
  }
}
