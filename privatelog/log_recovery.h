// What has to be done to a log that a killed run left, before anything is appended to it.
//
// The log is open for writing, the run's lock is held, and the log has been read to its end.
// Nothing here prints; functions that return bool leave errno when they return false.
#pragma once

#include <optional>
#include <string>

#include "privatelog/loaded_log.h"
#include "privatelog/log_file.h"
#include "privatelog/log_index.h"
#include "privatelog/log_scan.h"

// Makes the record of an account good that was prepared behind the content (prepared_account.h),
// where its update went through. `isDone` tells whether there was one: the log has to be read again
// then.
bool completePreparedAccount(LogFile& log, const ScanEnd& end, bool isInsideName, bool& isDone);

// Completes, ends or comments out a last line that lacks its line feed. For the start of a change
// the disk is asked whether the change was made. `completed` is the change that was, its path in
// `tail`.
bool mendTornTail(LogFile& log,
                  LogIndex& index,
                  const LogScan& scan,
                  std::optional<PrivateLogRecord>& completed);

// Puts the mode of an entry back whose owner was changed a moment before the kill. Only of the
// recorded file, and only when nothing has touched it since.
void mendHeldMode(const HeldMode& held);
