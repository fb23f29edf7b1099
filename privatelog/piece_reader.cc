#include "privatelog/piece_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr size_t kPiece = 4096;

}  // namespace

bool PieceReader::holds(int fd, uint64_t offset, std::string_view text, uint64_t end) {
  const bool isKept = offset >= start && offset + text.size() <= start + length;
  if (!isKept && !read(fd, offset, text.size(), end))
    return false;
  return std::string_view(piece.data() + (offset - start), text.size()) == text;
}

bool PieceReader::read(int fd, uint64_t offset, size_t needed, uint64_t end) {
  length = 0;
  piece.resize(std::max(kPiece, needed));
  start = offset;
  const size_t wanted = std::min<uint64_t>(piece.size(), end - std::min(offset, end));
  while (length < wanted) {
    const ssize_t count =
        pread(fd, piece.data() + length, wanted - length, static_cast<off_t>(start + length));
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0)
      break;
    length += static_cast<size_t>(count);
  }
  return length >= needed;
}
