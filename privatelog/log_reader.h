// Reads the text of the private log, line by line, or at given offsets.
//
// A line counts only with its line feed. The text behind the last line feed is the tail: a killed
// run may have left its last record there. The first NUL byte ends the content, because a writer
// reserves room ahead of what it has written (FORMAT.md, "The end of the file").
//
// Reads in large pieces; memory is bounded by one piece or the longest line. A failed read ends the
// content as well, and error() is set. An undo may mark lines in the file meanwhile.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "services/unique_fd.h"

struct LogLine {
  uint64_t offset = 0;    // of the line's first byte in the file
  std::string_view text;  // without the line feed; valid until the next call
};

class LogReader {
 public:
  // Opens the file, which must be a regular one. False with errno.
  bool open(const char* path);

  int descriptor() const { return file.get(); }

  // The next complete line, or nothing at the end. Nothing also when the line does not end before
  // the offset `limit`.
  std::optional<LogLine> next(uint64_t limit = kNoLimit);

  // The offset of the next line.
  uint64_t position() const { return bufferOffset + lineStart; }

  // Makes the next line begin at `offset`, which lies ahead, or at the end of the content if that
  // comes first.
  void skipTo(uint64_t offset);

  // The content from position() on: at least `length` bytes, or all that are left. Valid until the
  // next call.
  std::string_view peek(size_t length);

  // The file as it was when it was opened.
  const struct stat& status() const { return fileStatus; }

  // errno of the read that failed, or 0.
  int error() const { return readError; }

  // The text behind the last line, and the end of the content. Call both only after next() has
  // returned nothing.
  LogLine tail() const { return {bufferOffset + lineStart, pending()}; }
  uint64_t contentEnd() const { return bufferOffset + filled; }

  static constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

 private:
  std::string_view pending() const {
    return {buffer.data() + lineStart, static_cast<size_t>(filled - lineStart)};
  }
  bool fill();

  UniqueFd file;
  struct stat fileStatus = {};
  std::vector<char> buffer;
  uint64_t bufferOffset = 0;  // of buffer[0] in the file
  size_t lineStart = 0;       // in the buffer: the first byte not handed out yet
  size_t searched = 0;        // no line feed between lineStart and here
  size_t filled = 0;
  bool finished = false;
  int readError = 0;
};
