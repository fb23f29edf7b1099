// Undo: the newest section of the log, backed out line by line from front to back.
//
// Each line is turned into a comment as soon as it has been dealt with, so an undo that was stopped
// is simply run again: setting an owner back twice does no harm. Changes are backed out in the
// order in which they were made, and account updates come last because they stand last. One section
// goes per call.
//
// With `hardened` a line whose obstacle may pass stays as it is, and so do the account lines and
// the date: the next undo takes the section up again.
//
// The log is read on a descriptor of its own; marks go through the one that is open for writing.
// Who closes that brings marks and restored files to the disk. The messages are the undo's own.
#pragma once

#include <cstdint>

#include "entry/changed_devices.h"
#include "entry/file_systems.h"
#include "privatelog/loaded_log.h"
#include "privatelog/log_file.h"
#include "privatelog/log_index.h"

namespace orvs {
class PasswdDB;
class GroupDB;
}  // namespace orvs

struct UndoJob {
  LogFile& log;
  LogIndex& index;
  FileSystems& fileSystems;
  ChangedDevices& devices;  // takes note of what is restored
  LoadedLog& loaded;        // from the log
  bool hardened;
  orvs::PasswdDB& passwdDB;
  orvs::GroupDB& groupDB;
  bool pretend;
  bool preserveBits;
  bool preserveCapabilities;
  uint64_t& count;         // grows by one for each line that is dealt with
  uint64_t& accountCount;  // for each account that is set back
  uint64_t& aclCount;      // and for each ACL
};

// False when it had to stop.
bool undoNewestSection(const UndoJob& job);
