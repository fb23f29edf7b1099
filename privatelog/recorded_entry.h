// What stands now at the path of a record.
#pragma once

#include <string>

#include "entry/entry_status.h"
#include "privatelog/log_line.h"

// lookAt() for a path of any length; false with errno.
bool findStatus(const std::string& path, bool follow, EntryStatus& status);

// Whether a change whose record was not finished went through: the entry bears other ids than the
// record's old ones. False, with a warning, when there is no entry.
bool checkPartialDone(const PrivateLogRecord& record);
