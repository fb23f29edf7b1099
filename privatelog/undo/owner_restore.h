// Sets the recorded owner of one file back. Together with the walk's conversion this is the only
// place that changes owners.
//
// Lives in the process's current directory: it changes into the directory of each file and stays
// there. Between two files of one directory that step is left out as long as the name leads to the
// recorded file. What is looked at is pinned, and owner and mode are set through the pin.
//
// With `hardened` the record is weighed against what is found (undo_plan.h); without it the record
// is taken at its word. Messages are its own, for every failure.
#pragma once

#include <string>

#include "entry/attribute_ids.h"
#include "entry/changed_devices.h"
#include "entry/file_systems.h"
#include "entry/pinned_entry.h"
#include "entry/pinned_path.h"
#include "privatelog/loaded_log.h"
#include "privatelog/log_index.h"
#include "privatelog/undo/undo_plan.h"
#include "services/logger.h"

// What becomes of a record's line.
enum class Restored : uint8_t {
  Done,    // restored, or given up: the line is marked
  NotYet,  // the change was not made, or an obstacle may pass: the line stays
  Waits,   // an obstacle of root's is in the way: the line stays, and so does the section
  Stop,    // the undo ends here
};

class OwnerRestorer {
 public:
  struct Rules {
    bool hardened;              // weigh the record; else compare nothing
    bool preserveBits;          // put set-id and sticky bits back, which the change of owner clears
    bool preserveCapabilities;  // and capabilities
  };

  // All belong to the caller and outlive this object. `log` was loaded from the log that is undone.
  OwnerRestorer(orvs::LoggerPtr itsLogger,
                Rules itsRules,
                LoadedLog& log,
                LogIndex& logIndex,
                FileSystems& facts,
                ChangedDevices& changed);

  Restored restore(const ScannedLine& line);

  // Sets an ACL back to the bytes that a conversion found. Weighed always: who takes the log at its
  // word has no record of ACLs.
  Restored restoreAcl(const LoggedAttribute& logged, const AttributeChange& change);

  // Of the current directory; empty while it has not been changed into one.
  const std::string& currentDirectory() const { return directory; }

 private:
  enum class Failure { Unreachable, NotChanged };

  Restored restoreLiterally();
  Restored restoreWeighed();
  bool stepInto(std::string_view wanted);
  bool enterDirectory(std::string_view wanted);
  bool pinRecorded();
  bool isRecorded(const EntryStatus& status, const FileSystemFacts& facts) const;
  Restored weigh(const PinnedPath& way);
  RecordedIds recordedIds() const;
  bool findOwnRecord(LoggedChange& own) const;
  bool isOfSection(const LoggedChange& known) const {
    return known.pathOffset > loaded.newestOffset;
  }
  Restored change(OwnerIds oldIds, bool withBits);
  bool holdMode(mode_t mode);
  Restored notChanged(int error);
  Restored weighAcl(const PinnedPath& way);
  bool isSuccessorsAcl(const PinnedPath& way, const AclChanges& changes) const;
  void holdCapability(OwnerIds owner);
  void failedToKeepCapability() const;
  void putCapabilityBack();
  bool mayPass(const PinnedPath& way);
  bool coversRecorded(const PinnedPath& way) const;
  Restored report(Failure failure, int error, Restored result);
  Restored failedToStat();
  Restored putBitsBack();

  orvs::LoggerPtr logger;
  Rules rules;
  LoadedLog& loaded;
  LogIndex& index;
  FileSystems& fileSystems;
  ChangedDevices& devices;

  const ScannedLine* line = nullptr;     // in work
  const AttributeChange* acl = nullptr;  // in work, when it is no owner
  std::string capability;                // of the file in work, that is to be put back
  uint64_t capabilityPosition = 0;       // of its record
  std::string path;                      // of its record
  const char* name = "";                 // the end of `path`
  std::string directory;                 // the absolute path last changed into
  PinnedEntry entry;
};
