// What a run has to know about the log before it works with it, filled by one pass over the log.
//
// A commit uses the known files. Undo uses the newest section, the ids of all lines and the files
// of the section. The report uses the ids of an inode for its further names. The table holds
// changes that were made and are not undone; the sets of ids cover all lines, undone ones included.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "privatelog/account_plan.h"
#include "privatelog/change_table.h"
#include "privatelog/device_classes.h"
#include "privatelog/log_scan.h"

// A set of ids. Adding an id that was added a moment ago is cheap.
class IdSet {
 public:
  void add(uint32_t id) {
    uint64_t& seen = recent[id % recent.size()];
    if (seen == uint64_t{id} + 1)
      return;
    seen = uint64_t{id} + 1;
    ids.insert(id);
  }
  bool contains(uint32_t id) const { return ids.contains(id); }

 private:
  std::set<uint32_t> ids;
  std::array<uint64_t, 64> recent = {};  // ids that are in the set, plus one
};

// A line whose entry may lack its special mode bits: a run was killed between the change of owner
// and the change of mode.
struct HeldMode {
  std::string path;
  bool followed = false;
  Vouched vouched;
  PrivateLogRecord record;  // without its path
};

// An account's line; undone lines are included.
struct LoggedAccount {
  PlannedUpdate update;
  uint64_t position = 0;  // of its record in the index; 0: read literally
  bool isMarked = false;  // undone
};

// A change that failed, in a section that is not undone.
struct FailedEntry {
  std::string path;
  bool followed = false;
  Vouched vouched;
  PrivateLogRecord record;  // without its path
};

// An attribute that was changed, or may have been changed.
struct KnownAttribute {
  InodeKey key;
  int64_t birth = 0;
  AttributeKind what = AttributeKind::AccessAcl;
  uint64_t position = 0;  // of the record
  bool isDone = false;    // false: the record does not say whether it was changed
};

// A section with a record in the index.
struct LoggedSection {
  uint64_t offset = 0;    // of its date line
  uint64_t position = 0;  // of the record
  bool isOpen = false;    // a power cut may have lost its changes
};

struct LoadedLog {
  ChangeTable table;
  DeviceClasses classes;

  // The newest section that is not undone: its date line with the "!", and the offset at which it
  // begins. Sections that are read literally and have equal date lines count as one.
  std::string newestDate;
  uint64_t newestOffset = 0;
  uint64_t newestPosition = 0;  // of its record in the index; 0: read literally

  std::vector<LoggedSection> sections;  // of earlier runs
  std::set<std::string> dates;          // of the sections that are not undone, without the "!"
  IdSet oldUids, oldGids, newUids, newGids;
  std::vector<HeldMode> heldModes;
  std::vector<LoggedAccount> accounts;
  std::vector<FailedEntry> failedEntries;
  std::vector<LoggedAttribute> attributes;
  std::unordered_multimap<uint64_t, KnownAttribute> knownAttributes;  // by inode number

  InodeKey keyOf(const ScannedLine& line);

  // Whether the section is open that holds the line at `offset` or the index's record at
  // `position`.
  bool isLineInOpenSection(uint64_t offset) const;
  bool isRecordInOpenSection(uint64_t position) const;
};

// Reads all lines of `scan`, whose header was read before. Prints messages about incomplete
// changes. False when reading failed.
bool loadLines(LogScan& scan, LoadedLog& loaded);
