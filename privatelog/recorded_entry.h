// What stands now at the path of a record.
#pragma once

#include <string>

#include "entry/entry_status.h"
#include "entry/file_systems.h"
#include "privatelog/log_line.h"
#include "privatelog/log_scan.h"

// Whether what was found is the file that a record of the index names: by file system, inode number
// and birth time. Never where one of them cannot be told.
bool isRecorded(const Vouched& vouched,
                uint64_t inode,
                const EntryStatus& found,
                const FileSystemFacts& facts);

// lookAt() for a path of any length; false with errno.
bool findStatus(const std::string& path, bool follow, EntryStatus& status);

// Whether a change whose record was not finished went through: the entry bears other ids than the
// record's old ones. False, with a warning, when there is no entry.
bool checkPartialDone(const PrivateLogRecord& record);
