// The log as the tool's own readers (load, undo, report) see it: line by line, with only those
// facts that can be trusted.
//
// With `hardened` the index decides. In the part of the log that was written with an index, a line
// is handed out only when a record vouches for it; the record gives the length of the path and the
// new ids. The part in front, or a whole log without an index, is read literally, except for lines
// that begin inside a name (line_feed_ranges.h). Without `hardened` the whole log is read
// literally.
//
// When a line is not where its record says, the log was edited by hand, and the lines are looked
// for again (index_align.h). Lines that no record vouches for are counted and not handed out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "privatelog/attribute_change.h"
#include "privatelog/boot_id.h"
#include "privatelog/index_reader.h"
#include "privatelog/line_feed_ranges.h"
#include "privatelog/log_line.h"
#include "privatelog/log_reader.h"

// What a section of the log noted about a file system.
struct NotedFileSystem {
  uint64_t device = 0;    // the device number in the section's lines
  uint64_t type = 0;      // f_type; 0 when nothing was noted
  uint64_t fsid = 0;      // 0: none
  bool sameBoot = false;  // noted in the present boot
};

// What the index adds to a line.
struct Vouched {
  IndexLine line;
  uint64_t position = 0;       // of the record, in the index
  NotedFileSystem fileSystem;  // of the entry
};

// The record of a changed attribute, without path and values.
struct LoggedAttribute {
  IndexAttribute record;
  uint64_t position = 0;
  NotedFileSystem fileSystem;
};

struct ScannedLine {
  LineType type = LineType::Ignored;  // Ignored also for failed changes and marked lines
  PrivateLogRecord record;            // filled for marked and failed changes too
  uint64_t offset = 0;                // of the first byte
  std::string_view text;              // the whole line; for a vouched change its start
  bool isMarked = false;              // undone
  std::optional<Vouched> vouched;     // empty: read literally
  bool isOpenSection = false;         // of a vouched date line: a power cut may have lost changes

  bool isFollowed() const {
    return vouched ? vouched->line.kind == IndexKind::Followed : text.starts_with('>');
  }
};

// How the log ends, for a run that continues it.
struct ScanEnd {
  uint64_t contentEnd = 0;  // without unvouched text that a kill or a power cut left
  uint64_t textEnd = 0;     // with that text
  uint64_t tailOffset = 0;  // of a last line without line feed
  std::string tail;
  std::optional<Vouched> tailRecord;     // the record of the start at the front of the tail
  bool hasTailEnd = false;               // the tail has more than that start
  uint64_t indexEnd = 0;                 // behind the last record that counts
  IndexKind nextKind = IndexKind::None;  // of the first record without a line behind that
  uint64_t unvouchedLines = 0;           // lines that no record vouches for
  bool hasLiteralLines = false;          // lines besides the header were read literally
  // Set after a realignment: the position of the first record that was realigned, and the moved end
  // of the literal part.
  std::optional<uint64_t> realignedFrom;
  std::optional<uint64_t> movedLiteralEnd;
};

class LogScan {
 public:
  enum class Opened { Yes, No, Misfit };

  // Opens the log and, when `hardened`, its index. No: there is no log or it cannot be read, with
  // errno. Misfit: the index cannot be used; indexReader().reason() says why.
  Opened open(bool hardened);

  // The attribute records that were passed so far, in order.
  std::vector<LoggedAttribute>& attributes() { return seenAttributes; }

  // The reader of the text. The caller reads the header from it before the first next().
  LogReader& text() { return reader; }

  // The next line, valid until the next call; null at the end.
  const ScannedLine* next();

  // All functions below are for after the end. error() is the errno of a read that failed, or 0.
  int error() const { return reader.error() != 0 ? reader.error() : index.error(); }
  const ScanEnd& end() const { return scanEnd; }

  // Whether log and index do not belong together: the index has records of lines, the log has lines
  // behind its literal part, and no record fits a line.
  bool isMisfit() const {
    return triedRecords > 0 && fittingRecords == 0 && scanEnd.unvouchedLines > 0;
  }

  // Whether `offset` lies inside a name of the literal part.
  bool isInsideName(uint64_t offset) const { return isHardened && ranges.contains(offset); }

  bool hasIndex() const { return index.isOpen(); }
  const IndexReader& indexReader() const { return index; }

  // For each record of the index, by its number, the offset of its line; empty when nothing was
  // realigned.
  const std::vector<uint64_t>& places() const { return linePlaces; }

 private:
  void findLiteralEnd();
  bool isInPlace(const IndexSection& section) const;
  bool nextLiteral();
  bool nextVouched();
  bool tryRecord(const IndexBytes& bytes);
  void takeAttribute(const IndexAttribute& record);
  bool takeRecord(const IndexBytes& bytes);
  bool takeSection(const IndexSection& section);
  bool takeLine(const IndexLine& line);
  std::optional<std::string_view> textAt(uint64_t offset, size_t length);
  NotedFileSystem notedFileSystem(uint64_t device) const;
  void advance(uint64_t begin, uint64_t end);
  bool hasLineBehindCursor();
  uint64_t placeOf(uint64_t offset) const;
  void realign(uint64_t firstPosition, uint64_t textFrom);
  uint64_t planEnd();
  void finish();

  ScannedLine scanned;  // what next() hands out
  LogReader reader;
  IndexReader index;
  LineFeedRanges ranges;  // of the literal part
  ScanEnd scanEnd;
  bool isHardened = false;
  bool isFinished = false;
  uint64_t literalEnd = 0;
  uint64_t cursor = 0;  // end of the last vouched line, or of the literal part
  uint64_t triedRecords = 0;
  uint64_t fittingRecords = 0;
  std::string openStart;  // the text of the last vouched line if it lacks its line feed
  std::optional<Vouched> openRecord;
  bool hasOpenEnd = false;
  bool isTornTail = false;  // nothing follows the open start
  BootId boot = currentBootId();
  bool sectionIsOfThisBoot = false;
  std::vector<NotedFileSystem> fileSystems;  // of the present section
  std::vector<uint64_t> linePlaces;
  std::vector<LoggedAttribute> seenAttributes;
};
