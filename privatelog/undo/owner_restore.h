// Restores the recorded owner of one file. Only this and the walk's conversion change owners of
// files.
//
// Uses the current directory of the process: it changes into the directory of each file and stays
// there. For a further file in the same directory that step is left out, as long as the name leads
// to the recorded file. Each file is pinned, and owner and mode are set through the pin.
//
// With `hardened` the record is weighed against the file at its path (undo_plan.h); without it the
// record is trusted. Every failure is reported here.
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

// The result for a record's line.
enum class Restored : uint8_t {
  Done,    // restored, or given up: the line is marked
  NotYet,  // the change was not made: the line stays
  Waits,   // an obstacle may pass: the line stays, and so does the section
  Stop,    // the undo ends here
};

class OwnerRestorer {
 public:
  struct Rules {
    bool hardened;      // weigh the record; else trust it
    bool preserveBits;  // set the set-id and sticky bits again that the change of owner clears
    bool preserveCapabilities;  // the same for capabilities
  };

  // The caller owns all references, which outlive this object. `log` was loaded from the log that
  // is undone.
  OwnerRestorer(orvs::LoggerPtr itsLogger,
                Rules itsRules,
                LoadedLog& log,
                LogIndex& logIndex,
                FileSystems& facts,
                ChangedDevices& changed);

  Restored restore(const ScannedLine& line);

  // Restores the bytes of an ACL from before its conversion. Always weighs the record: without
  // `hardened` no ACL has a record.
  Restored restoreAcl(const LoggedAttribute& logged, const AttributeChange& change);

  // The path of the current directory; empty until the first change of directory.
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

  const ScannedLine* line = nullptr;     // the present one
  const AttributeChange* acl = nullptr;  // the present one; null when an owner is restored
  std::string capability;                // of the present file, to be put back
  uint64_t capabilityPosition = 0;       // of its record
  std::string path;                      // of its record
  const char* name = "";                 // the last component of `path`
  std::string directory;                 // absolute path of the current directory, or empty
  PinnedEntry entry;
};
