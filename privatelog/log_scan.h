// The log as the tool's own readers (load, undo, report) see it: line by line, each with what may
// be believed of it.
//
// With `hardened` the index decides. Of the part that was written with an index, a line is handed
// out only when a record vouches for it: its path is cut by the length in the record, and its new
// ids are those of the record. The part in front of it, and a log without an index, are read
// literally, but for lines that begin inside a name (line_feed_ranges.h). Without `hardened` all is
// literal.
//
// Where a record does not find its line, the log was edited by hand, and the lines are looked for
// again (index_align.h). Lines that no record vouches for are counted and not handed out.
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

// A file system as a section of the log has noted it.
struct NotedFileSystem {
  uint64_t device = 0;    // as the section's lines have it
  uint64_t type = 0;      // f_type, 0 when nothing was noted
  uint64_t fsid = 0;      // 0: none
  bool sameBoot = false;  // noted since this machine was started
};

// What the index adds to a line.
struct Vouched {
  IndexLine line;
  uint64_t position = 0;       // of the record in the index
  NotedFileSystem fileSystem;  // of the entry
};

// A changed attribute, without its path and values.
struct LoggedAttribute {
  IndexAttribute record;
  uint64_t position = 0;
  NotedFileSystem fileSystem;
};

struct ScannedLine {
  LineType type = LineType::Ignored;  // Ignored also for a change that failed and for a mark
  PrivateLogRecord record;            // of marked and failed changes, too
  uint64_t offset = 0;                // of the first byte
  std::string_view text;              // the whole line; of a change that is vouched for, its start
  bool isMarked = false;              // undone
  std::optional<Vouched> vouched;     // empty: read literally

  bool isFollowed() const {
    return vouched ? vouched->line.kind == IndexKind::Followed : text.starts_with('>');
  }
};

// What is behind the last line, for who goes on writing.
struct ScanEnd {
  uint64_t contentEnd = 0;  // without what no record vouches for and a kill or a power cut has left
  uint64_t textEnd = 0;     // with it
  uint64_t tailOffset = 0;  // where a last line without line feed begins
  std::string tail;
  std::optional<Vouched> tailRecord;     // vouches for the start with which the tail begins
  bool hasTailEnd = false;               // and the tail goes on behind it
  uint64_t indexEnd = 0;                 // behind the last record that has its line
  IndexKind nextKind = IndexKind::None;  // of the first record behind that, which has none
  uint64_t unvouchedLines = 0;           // that no reader acts on
  bool hasLiteralLines = false;          // besides the header
  // Set when lines were looked for again: for records from this position on.
  std::optional<uint64_t> realignedFrom;
  std::optional<uint64_t> movedLiteralEnd;
};

class LogScan {
 public:
  enum class Opened { Yes, No, Misfit };

  // Opens the log and, when `hardened`, its index. No: there is no log, or it cannot be read; errno
  // tells. Misfit: the index cannot be used; indexReader() tells why.
  Opened open(bool hardened);

  // The attributes whose records have been passed so far, in order.
  std::vector<LoggedAttribute>& attributes() { return seenAttributes; }

  // For the header, which is to be read before the first next().
  LogReader& text() { return reader; }

  // The next line, valid until the next call; null at the end.
  const ScannedLine* next();

  // All that follow are for after the end. errno of a read that failed, or 0.
  int error() const { return reader.error() != 0 ? reader.error() : index.error(); }
  const ScanEnd& end() const { return scanEnd; }

  // The index has records of lines, and the log lines behind its literal part, but not one record
  // has found its line: they do not belong together.
  bool isMisfit() const {
    return triedRecords > 0 && fittingRecords == 0 && scanEnd.unvouchedLines > 0;
  }

  // Whether a line that begins there begins inside a name of the literal part.
  bool isInsideName(uint64_t offset) const { return isHardened && ranges.contains(offset); }

  bool hasIndex() const { return index.isOpen(); }
  const IndexReader& indexReader() const { return index; }

  // Where each record of the index, by its number, has its line; empty unless lines were looked
  // for.
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
  uint64_t cursor = 0;  // behind the last line that was vouched for, or the literal part
  uint64_t triedRecords = 0;
  uint64_t fittingRecords = 0;
  std::string openStart;  // the last vouched line, as far as it lacks its line feed
  std::optional<Vouched> openRecord;
  bool hasOpenEnd = false;
  bool isTornTail = false;  // nothing follows it
  BootId boot = currentBootId();
  bool sectionIsOfThisBoot = false;
  std::vector<NotedFileSystem> fileSystems;  // of the section
  std::vector<uint64_t> linePlaces;
  std::vector<LoggedAttribute> seenAttributes;
};
