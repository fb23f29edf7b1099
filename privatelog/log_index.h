// Writes the log's index: idshift.log.index, beside the log.
//
// A record is written before its line appears in the log, so a line without a record was not
// written by the tool. The file is created with the first record; until then the log has no index
// and is read literally. A function that returns false leaves errno, and its record does not count.
// The caller holds the run's lock.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "entry/file_systems.h"
#include "privatelog/account_plan.h"
#include "privatelog/attribute_change.h"
#include "privatelog/index_record.h"
#include "privatelog/log_file.h"
#include "privatelog/log_scan.h"

class LogIndex {
 public:
  // The mode of a file that has to be created. Call before the other functions.
  void setCreationMode(mode_t mode) { creationMode = mode; }

  // Continues the index that `scan` has read to its end. Records without a line are cut off; after
  // a realignment the records get the new offsets of their lines. Without an index, what the log
  // holds when the first record is written becomes its literal part.
  bool open(const LogScan& scan);

  // Forgets the index of the former log; the caller deals with the file. The new log has no literal
  // part.
  void startAfresh();

  // Adds the record of a line that is about to be appended to the log at `offset`. `start` is the
  // text of the line up to the end of its start. The caller sets kind, flags, mode, modeTime,
  // nameLength, birth and newIds in `line`.
  bool addLine(const IndexLine& line, uint64_t offset, std::string_view start);
  // Adds the record of the device's file system, unless this section has one already. Call before
  // addLine().
  bool addFileSystem(uint64_t device, const FileSystemFacts& facts) {
    return device == latestNoted || note(device, facts);
  }
  // Adds the record of a date line that is about to be appended at `offset`, the end of the log.
  bool addSection(std::string_view dateLine, uint64_t offset);
  // Says that all changes of this run's section are on their disks.
  bool setSectionSynced();

  // Writes and syncs a plan and makes it the newest. `logEnd` is the end of the log; `hasSection`
  // tells whether this run has begun its section. Returns the position of the plan, or nothing.
  std::optional<uint64_t> addPlan(std::span<const PlannedUpdate> updates,
                                  uint64_t logEnd,
                                  bool hasSection);
  // Assigns the plan at `position` to the section that was begun last, or closes it.
  bool setPlanSection(uint64_t position);
  bool closePlan(uint64_t position);
  // Makes sure that this many more records can be added.
  bool reserveRecords(size_t count) { return file.reserve(count * kIndexRecordSize); }

  // Adds the record of an attribute that is about to be changed. `logEnd` is the end of the log.
  // Returns the position of the record, or nothing.
  std::optional<uint64_t> addAttribute(const AttributeChange& change, uint64_t logEnd);
  bool flagAttribute(uint64_t position, uint8_t flags);

  // Removes the records added since the last keep().
  void takeBack();
  void keep() { keptEnd = file.end(); }

  // Sets the flags of the line record that was added last, or of the one at `position`.
  bool flagLast(uint8_t flags) { return flag(lastLine, flags); }
  bool flag(uint64_t position, uint8_t flags);

  // Stores in the line record at `position` the mode from before a change of owner, the present
  // time, and `flags`.
  bool holdMode(uint64_t position, mode_t mode, uint8_t flags);

  bool sync() { return !file.isOpen() || file.sync(); }
  bool close() { return file.close(); }

 private:
  // Creates and syncs the index before the first line exists: without an index that line would be
  // read literally.
  bool create(uint64_t literalEnd);
  bool note(uint64_t device, const FileSystemFacts& facts);
  bool add(const IndexBytes& bytes);
  bool moveRecords(const LogScan& scan);

  mode_t creationMode = kReadableByAll;
  LogFile file;
  bool hasLiteralLines = false;
  uint64_t seed = 0;
  uint64_t keptEnd = 0;
  uint64_t lastLine = 0;     // position of the line record added last
  uint64_t lastSection = 0;  // position of this run's section record; 0: none yet
  uint64_t newestPlan = 0;
  bool hasAttributes = false;          // the header's version says so
  std::vector<uint64_t> notedDevices;  // of this section
  uint64_t latestNoted = 0;
};
