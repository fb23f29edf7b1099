// The log's index as a file that is written: idshift.log.index, beside the log.
//
// A record is laid down before its line can be seen, so a line without one is none of the tool's.
// The file is made with the first record that is needed; until then a log has no index and is read
// literally. Every function that returns bool leaves errno when it returns false; nothing has been
// laid down then. The caller holds the run's lock.
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
  // Of a file that has to be made. To be called before the others.
  void setCreationMode(mode_t mode) { creationMode = mode; }

  // Goes on with the index that `scan` has read to its end: records without a line are cut off, and
  // where lines were looked for again the records get their new places. Without one, what the log
  // holds by then will be its literal part.
  bool open(const LogScan& scan);

  // Forgets the index of a log that is given up; the file itself is the caller's. The log that
  // begins has no literal part.
  void startAfresh();

  // A line that is about to be appended to the log at `offset`; `start` is its text up to the end
  // of the start. In `line` kind, nameLength, birth, newIds and what belongs to the mode are set.
  // `device` is the one in `start`.
  bool addLine(const IndexLine& line, uint64_t offset, std::string_view start);
  // The file system of the lines that follow, unless this section has it already.
  bool addFileSystem(uint64_t device, const FileSystemFacts& facts) {
    return device == latestNoted || note(device, facts);
  }
  // `logEnd` is the content of the log in front of it.
  bool addSection(std::string_view dateLine, uint64_t offset);

  // Lays a plan down, on the disk when this returns, and makes it the newest. `logEnd` as above;
  // `hasSection` tells whether this run has begun its section. Its position, or nothing.
  std::optional<uint64_t> addPlan(std::span<const PlannedUpdate> updates,
                                  uint64_t logEnd,
                                  bool hasSection);
  // The plan at `position` belongs to the section that was begun last, or is to be done no more.
  bool setPlanSection(uint64_t position);
  bool closePlan(uint64_t position);
  // Makes sure that this many more records can be laid down.
  bool reserveRecords(size_t count) { return file.reserve(count * kIndexRecordSize); }

  // An attribute that is about to be changed; `logEnd` as for a section. Its position, or nothing.
  std::optional<uint64_t> addAttribute(const AttributeChange& change, uint64_t logEnd);
  bool flagAttribute(uint64_t position, uint8_t flags);

  // Takes back what was laid down since the last keep().
  void takeBack();
  void keep() { keptEnd = file.end(); }

  // Sets the flags of the line that was laid down last, or of the one at `position`.
  bool flagLast(uint8_t flags) { return flag(lastLine, flags); }
  bool flag(uint64_t position, uint8_t flags);

  // For the line at `position`: the mode that was found before a change of its owner, and when.
  bool holdMode(uint64_t position, mode_t mode, uint8_t flags);

  bool sync() { return !file.isOpen() || file.sync(); }
  bool close() { return file.close(); }

 private:
  // On the disk before the first line is: without an index that would be read literally.
  bool create(uint64_t literalEnd);
  bool note(uint64_t device, const FileSystemFacts& facts);
  bool add(const IndexBytes& bytes);
  bool moveRecords(const LogScan& scan);

  mode_t creationMode = kReadableByAll;
  LogFile file;
  bool hasLiteralLines = false;
  uint64_t seed = 0;
  uint64_t keptEnd = 0;
  uint64_t lastLine = 0;     // position of the line laid down last
  uint64_t lastSection = 0;  // and of the section; 0: none by this run
  uint64_t newestPlan = 0;
  bool hasAttributes = false;          // the header's version says so
  std::vector<uint64_t> notedDevices;  // of this section
  uint64_t latestNoted = 0;
};
