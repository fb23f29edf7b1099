// Where the report goes: opens the report file without being led astray.
//
// The name may stand in a directory such as /tmp, where others can put links, pipes and files of
// their own. So the rules of fs.protected_symlinks and fs.protected_regular are applied here,
// whatever the kernel is set to; a named pipe is refused and never waited for; and nothing is cut
// before the opened file is known to be no copy of the log's name. A file that is missing is
// created with the umask's mode.
#pragma once

#include <string>

#include "privatelog/log_record.h"
#include "services/unique_fd.h"

struct ReportTarget {
  UniqueFd file;       // open for writing and empty; or none
  bool isLog = false;  // the name led to the log after all
};

// `log` tells the file that must never be overwritten.
ReportTarget openReportTarget(const std::string& fileName, DevInode log);
