// Repairs a log that a killed run left, before anything is appended to it. log_recovery.cc explains
// how.
//
// The caller holds the run's lock, has opened the log for writing and has read it to its end.
// Nothing is printed; functions that return bool leave errno when they return false.
#pragma once

#include <optional>
#include <string>

#include "privatelog/loaded_log.h"
#include "privatelog/log_file.h"
#include "privatelog/log_index.h"
#include "privatelog/log_scan.h"

// Completes an account's record that an older release had prepared (prepared_account.h), if its
// update was made. `isDone` tells whether it did so: then the log has to be read again.
bool completePreparedAccount(LogFile& log, const ScanEnd& end, bool isInsideName, bool& isDone);

// Completes, ends or comments out a last line without line feed. For the start of a change it looks
// at the entry on the disk. `completed` becomes the change that was completed; its path points into
// the tail of `scan`.
bool mendTornTail(LogFile& log,
                  LogIndex& index,
                  const LogScan& scan,
                  std::optional<PrivateLogRecord>& completed);

// Restores the mode of an entry whose owner was changed just before the kill. Only if it is the
// recorded file, and only if nothing has changed it since.
void mendHeldMode(const HeldMode& held);
