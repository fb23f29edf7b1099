// Where the report goes: opens the report file without being led astray.
//
// The name may stand in a directory such as /tmp or somebody's home, where others can put links,
// pipes and files of their own. So foreign links (pinned_path.h) are not followed; the rule of
// fs.protected_regular is applied whatever the kernel is set to; a file with more than one name is
// refused in a directory that others can write, for it may be any file of the machine; a named pipe
// is refused and never waited for; and the file is truncated only after checking that it is none of
// the tool's own. A file that is missing is created with the umask's mode.
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
  UniqueFd file;                  // open for writing and empty; or none
  const char* ownPath = nullptr;  // the file of the tool's own to which the name led, or null
};

ReportTarget openReportTarget(const std::string& fileName, std::span<const OwnFile> ownFiles);

// The log, its index and the run's lock, as far as they are there. The log comes first.
std::vector<OwnFile> ownFiles();

// Where a file can take the name by a rename: by the same rules, and only onto a regular file or
// where there is none.
struct ReportPlace {
  UniqueFd directory;              // none: refused, and errno tells why
  std::string name;                // in the directory; no link
  std::optional<EntryStatus> old;  // of the file that is there
};

ReportPlace findReportPlace(const std::string& fileName);
