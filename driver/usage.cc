#include "driver/usage.h"

#include "services/logger.h"
#include "services/say.h"

namespace {

constexpr const char* kUsageLines[] = {
    "usage: idshift [options] directory...",
    "",
    "options:",
    "  -c, --commit         Commit the changes to the filesystem",
    "  -C, --commit-all     Commit the files and update passwd & group",
    "  -r, --report file    Write report of all files changed",
    "  -u, --usermap file   Name of local to zone user name map file",
    "  -g, --groupmap file  Name of local to zone group name map file",
    "  -i, --id [# | #-#]   Range of UID/GIDs to use for conflicts",
    "  -x, --xdev           Don't descend directories on other filesystems",
    "  -f, --follow         Follow symbolic links",
    "  -n, --nfs            Descend into directories on NFS filesystem.",
    "  -R, --restart        Force a restart (ignore existing log file)",
    "  -U, --undo           Undo a previous shiftid - restore old uid/gids",
    "  -V, --verbose        List files as they are processed",
    "  -v, --version        print version information",
    "  -h, --help           print this help information and exit",
    "",
    // Scripts compare the lines above byte for byte, so options without a letter are named here.
    "Further options: --survey, --json, --plan, --expect; see idshift(8).",
};

const char* word(bool value) {
  return value ? "true" : "false";
}

// Required: "0" for a file that was not named. Support scripts read the dump field by field.
const char* nameOrZero(const char* fileName) {
  return fileName != nullptr ? fileName : "0";
}

}  // namespace

void printUsage() {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  for (const char* line : kUsageLines)
    TELL(Echo::Stdout, "%s", line);
}

void printVersion() {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  TELL(Echo::Stdout, "OrvantaDC 5.7.0-207");
}

#define DUMP(...) TELL(Echo::Stderr, __VA_ARGS__)

void write2DebugLog(const CommandOptions& options) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  DUMP("Input Options:");
  DUMP("--------------------");
  DUMP("commit: %s", word(options.commit));
  DUMP("commitAll : %s ", word(options.commitAll));
  DUMP("reportFiles: %s ", nameOrZero(options.reportFiles));
  DUMP("userMapFile: %s", nameOrZero(options.userMapFile));
  DUMP("groupMapFile: %s ", nameOrZero(options.groupMapFile));
  DUMP("newIDRange: %ld ..%ld", long{options.newIDRange.low}, long{options.newIDRange.high});
  DUMP("follow: %s ", word(options.follow));
  DUMP("xdev: %s ", word(options.xdev));
  DUMP("restart: %s", word(options.restart));
  DUMP("undo: %s ", word(options.undo));
  DUMP("debug:  %s", word(options.debug));
  DUMP("verbose: %s ", word(options.verbose));
  DUMP("directories (%d)", options.directoryCount);
  for (int i = 0; i < options.directoryCount; ++i)
    DUMP("   %s", options.directories[i]);
}

#undef DUMP
