// Undo: the newest section of the log, backed out line by line from front to back.
//
// Each line is turned into a comment as soon as it is dealt with, so an undo that was stopped is
// simply run again: restoring an owner twice does no harm. Lines are backed out in the order of the
// log, ACLs before all lines. One call undoes one section.
//
// With `hardened` a line whose obstacle may pass stays as it is, and so do the account lines behind
// it and the date: the next undo takes the section up again. The account lines are the last ones,
// except those by which a run first finished the plan of an earlier one.
//
// The undo reads the log through a descriptor of its own and marks lines through the one that is
// open for writing. PrivateLog::close() syncs marks and restored files. All messages are printed
// here.
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
  ChangedDevices& devices;  // notes the devices of restored files
  LoadedLog& loaded;        // loaded from the log
  bool hardened;
  orvs::PasswdDB& passwdDB;
  orvs::GroupDB& groupDB;
  bool pretend;
  bool preserveBits;
  bool preserveCapabilities;
  uint64_t& count;         // incremented for each line that is dealt with
  uint64_t& accountCount;  // for each account that is restored
  uint64_t& aclCount;      // for each ACL that is restored or given up
};

// False when it had to stop.
bool undoNewestSection(const UndoJob& job);
