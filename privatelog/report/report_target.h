// Opens the report file safely, wherever its name leads.
//
// The name may be in a directory such as /tmp or somebody's home, where others can put links, pipes
// and files of their own. So foreign links (pinned_path.h) are not followed, and the rule of
// fs.protected_regular is applied whatever the kernel's setting is. In a directory that others can
// write a file with more than one name is refused, because it may be any file of the machine. A
// named pipe is refused and never waited for. The file is truncated only after checking that it is
// none of the tool's own. A missing file is created with the mode that the umask leaves.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "entry/entry_status.h"
#include "entry/file_ids.h"
#include "services/unique_fd.h"

// A file that a report must never overwrite.
struct OwnFile {
  const char* path = nullptr;
  DevInode id;
};

struct ReportTarget {
  UniqueFd file;                  // open for writing and empty; none on failure
  const char* ownPath = nullptr;  // the tool's own file to which the name leads, or null
};

ReportTarget openReportTarget(const std::string& fileName, std::span<const OwnFile> ownFiles);

// The log, its index and the run's lock, in this order; missing files are left out.
std::vector<OwnFile> ownFiles();

// The place of a report that is written to a temporary file and renamed. The rules are the same;
// the name must be free or lead to a regular file.
struct ReportPlace {
  UniqueFd directory;              // none: refused, with errno
  std::string name;                // the name in the directory; not a link
  std::optional<EntryStatus> old;  // the file that has the name now
};

ReportPlace findReportPlace(const std::string& fileName);
