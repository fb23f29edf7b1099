// What a run has to know of the log before it works with it: filled by one reading from front to
// back.
//
// A commit asks which files are known; undo asks for the newest section, for the ids of all lines
// and for the files of the section; the report asks for the ids of further names. Changes are those
// that were made and are not undone; ids are those of every line, also of one that is.
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

// Ids of one kind, remembered once each.
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
  std::array<uint64_t, 64> recent = {};  // ids that are in the set, each one higher
};

// A line whose entry may lack the special bits of its mode, because a run was killed between the
// change of owner and the change of mode.
struct HeldMode {
  std::string path;
  bool followed = false;
  Vouched vouched;
  PrivateLogRecord record;  // without its path
};

// The line of an account, marked ones included.
struct LoggedAccount {
  PlannedUpdate update;
  uint64_t position = 0;  // of its record in the index; 0: read literally
  bool isMarked = false;  // undone
};

// A change that failed, of a section that is not undone.
struct FailedEntry {
  std::string path;
  bool followed = false;
  Vouched vouched;
  PrivateLogRecord record;  // without its path
};

// An attribute that is known: it was changed, or may have been.
struct KnownAttribute {
  InodeKey key;
  int64_t birth = 0;
  AttributeKind what = AttributeKind::AccessAcl;
  uint64_t openChange = 0;  // position of the record where nothing tells whether it was changed
};

struct LoadedLog {
  ChangeTable table;
  DeviceClasses classes;

  // The newest section that is not undone: its date line with the "!", and where it begins. Lines
  // of equal dates that no record tells apart are one section.
  std::string newestDate;
  uint64_t newestOffset = 0;
  uint64_t newestPosition = 0;  // of its record in the index; 0: read literally

  std::set<std::string> dates;  // of the sections that are not undone, without the "!"
  IdSet oldUids, oldGids, newUids, newGids;
  std::vector<HeldMode> heldModes;
  std::vector<LoggedAccount> accounts;
  std::vector<FailedEntry> failedEntries;
  std::vector<LoggedAttribute> attributes;
  std::unordered_multimap<uint64_t, KnownAttribute> knownAttributes;  // by inode number

  InodeKey keyOf(const ScannedLine& line);
};

// Reads all lines of `scan`, whose header has been read. Messages about incomplete changes are its
// own. False when a line was not read for an error.
bool loadLines(LogScan& scan, LoadedLog& loaded);
