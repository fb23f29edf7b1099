// Compares a record with the entry that is now at its path.
#pragma once

#include <string>

#include "entry/entry_status.h"
#include "entry/file_systems.h"
#include "privatelog/log_line.h"
#include "privatelog/log_scan.h"

// Whether `found` is the recorded file, by file system, inode number and birth time. False when one
// of these is unknown.
bool isRecorded(const Vouched& vouched,
                uint64_t inode,
                const EntryStatus& found,
                const FileSystemFacts& facts);

// lookAt() for a path of any length; false with errno.
bool findStatus(const std::string& path, bool follow, EntryStatus& status);

// Whether a change with an unfinished record was made: the entry has other ids than the record's
// old ones. False, with a warning, when there is no entry.
bool checkPartialDone(const PrivateLogRecord& record);
