#include "privatelog/log_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr size_t kPiece = size_t{256} << 10;

}  // namespace

bool LogReader::open(const char* path) {
  *this = LogReader();
  // O_NONBLOCK: a FIFO in the log's place must not hold the run up.
  file.reset(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file || fstat(file.get(), &fileStatus) != 0)
    return false;
  if (!S_ISREG(fileStatus.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return true;
}

std::optional<LogLine> LogReader::next(uint64_t limit) {
  for (;;) {
    const char* from = buffer.data() + searched;
    if (const void* found = searched < filled ? memchr(from, '\n', filled - searched) : nullptr) {
      const auto length =
          static_cast<size_t>(static_cast<const char*>(found) - buffer.data()) - lineStart;
      if (bufferOffset + lineStart + length >= limit)
        return std::nullopt;
      const LogLine line{bufferOffset + lineStart, {buffer.data() + lineStart, length}};
      lineStart += length + 1;
      searched = lineStart;
      return line;
    }
    searched = filled;
    if (finished || !fill())
      return std::nullopt;
  }
}

std::string_view LogReader::peek(size_t length) {
  while (filled - lineStart < length && !finished)
    fill();
  return pending();
}

void LogReader::skipTo(uint64_t offset) {
  for (;;) {
    const uint64_t wanted = offset - std::min(offset, bufferOffset);
    lineStart = searched = std::max<size_t>(lineStart, std::min<uint64_t>(wanted, filled));
    if (lineStart >= wanted || finished || !fill())
      return;
  }
}

// Makes room behind the unfinished line and reads on. False at the end.
bool LogReader::fill() {
  if (lineStart > 0)
    memmove(buffer.data(), buffer.data() + lineStart, filled - lineStart);
  bufferOffset += lineStart;
  filled -= lineStart;
  searched -= lineStart;
  lineStart = 0;
  if (filled == buffer.size())
    buffer.resize(std::max(kPiece, buffer.size() * 2));

  ssize_t count;
  do {
    count = read(file.get(), buffer.data() + filled, buffer.size() - filled);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) {
    readError = count < 0 ? errno : 0;
    finished = true;
    return false;
  }
  auto fresh = static_cast<size_t>(count);
  if (const void* nul = memchr(buffer.data() + filled, '\0', fresh)) {
    fresh = static_cast<size_t>(static_cast<const char*>(nul) - buffer.data()) - filled;
    finished = true;
  }
  filled += fresh;
  return fresh > 0;
}
