// Reads the private log line by line, the way every reader of its text does, or piece by piece
// where somebody knows what stands at which place.
//
// A line counts only with its line feed: what stands behind the last one is the tail, the state in
// which a killed run leaves its last record. The first NUL byte ends the content as the end of the
// file would, because a writer reserves room ahead of what it has written (FORMAT.md, "The end of
// the file").
//
// Reads in large pieces; memory stays at one piece, or the longest line. A failed read ends the
// reading as well, and error() tells. One byte of a line that has been read may be overwritten in
// the file meanwhile.
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

  // The next whole line, or nothing at the end. With a limit, nothing also when the line does not
  // end before that offset.
  std::optional<LogLine> next(uint64_t limit = kNoLimit);

  // Where the next line begins.
  uint64_t position() const { return bufferOffset + lineStart; }

  // Goes forward to `offset`, where the next line begins then; to the end of the content when that
  // comes first.
  void skipTo(uint64_t offset);

  // The content from position() on: at least `length` bytes, or all that is left. Valid until the
  // next call.
  std::string_view peek(size_t length);

  // The file as it was when it was opened.
  const struct stat& status() const { return fileStatus; }

  // errno of the read that failed, or 0.
  int error() const { return readError; }

  // Both only after next() has returned nothing: what stands behind the last line, and where the
  // content ends.
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
  uint64_t bufferOffset = 0;  // where in the file buffer[0] stands
  size_t lineStart = 0;       // in the buffer: the first byte not handed out yet
  size_t searched = 0;        // no line feed between lineStart and here
  size_t filled = 0;
  bool finished = false;
  int readError = 0;
};
