// Sets the recorded owner of one file back. Together with the walk's conversion this is the only
// place that changes owners.
//
// Lives in the process's current directory: it changes into the directory of each file and stays
// there. Between two files of one directory that step is left out as long as the name leads to the
// recorded inode. What is looked at is pinned, and owner and mode are set through the pin.
//
// Messages are its own, for every failure. A file that cannot be restored is given up; only with
// the special mode bits to be kept can a failure end the whole undo.
#pragma once

#include <string>

#include "entry/changed_devices.h"
#include "entry/pinned_entry.h"
#include "privatelog/undo/undo_plan.h"
#include "services/logger.h"

class OwnerRestorer {
 public:
  struct Rules {
    bool hardened;      // act only on records that can be trusted; else compare nothing
    bool preserveBits;  // put set-id and sticky bits back, which the change of owner clears
  };

  // `log` and `changed` belong to the caller and outlive this object.
  OwnerRestorer(orvs::LoggerPtr log, Rules itsRules, ChangedDevices& changed);

  // Deals with one record, by one of the three steps that restore; `lineCredit` is what its line is
  // worth. False when the undo has to stop.
  bool restore(const PrivateLogRecord& record, UndoStep step, Credit lineCredit);

 private:
  enum class Failure { Unreachable, NotChanged };

  bool reach(const PrivateLogRecord& record, bool& found);
  bool stepInto(std::string_view wanted);
  bool enterDirectory(std::string_view wanted);
  bool isTrusted(const PrivateLogRecord& record, UndoStep step, Credit lineCredit);
  bool adoptIfRootAlone();
  bool giveUp(Failure failure);
  bool failedToStat();
  bool putBitsBack(mode_t mode);

  orvs::LoggerPtr logger;
  Rules rules;
  ChangedDevices& devices;

  std::string path;       // of the record in work
  const char* name = "";  // the end of `path`
  bool followed = false;
  std::string directory;  // the absolute path last changed into
  PinnedEntry entry;
};
