// What has to be done to the end of a log before anything is appended to it: a killed run may have
// left an account's record that it had prepared, and a line without its line feed.
//
// The log is open for writing and the run's lock is held. In this order: a prepared record is made
// good where its update went through (prepared_account.h); what lies behind the content is cut off;
// the torn line is completed, ended or commented out (torn_tail.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "privatelog/line_feed_ranges.h"
#include "privatelog/log_file.h"
#include "privatelog/log_line.h"

// How the content of a log ends, as a reader has found it.
struct LogEnd {
  uint64_t contentEnd = 0;
  uint64_t tailOffset = 0;
  std::string tail;  // behind the last line feed
};

class LogRecovery {
 public:
  // `ranges` is null when the log's text is taken at its word. All outlive this object.
  LogRecovery(LogFile& log, const LineFeedRanges* lineFeedRanges, LogEnd& logEnd)
      : file(log), ranges(lineFeedRanges), end(logEnd) {}

  // `isPath` when what lies behind the content is a path, however it reads. False with errno. `end`
  // then tells the end of the content, and still the torn line.
  bool run(bool isPath);

  // The torn change that was completed, if there was one; its path points into `end`.
  const std::optional<PrivateLogRecord>& completedChange() const { return completed; }

  // The date line, without its line feed, of a section that a prepared record began; or empty.
  const std::string& newDateLine() const { return dateLine; }

 private:
  bool completePrepared();
  bool mendTornTail();
  std::string readPrepared() const;

  LogFile& file;
  const LineFeedRanges* ranges;
  LogEnd& end;
  std::optional<PrivateLogRecord> completed;
  std::string dateLine;
};
