#include "privatelog/index_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr size_t kPiece = kIndexRecordSize * 4096;

}  // namespace

IndexReader::Opened IndexReader::open(const char* path) {
  *this = IndexReader();
  // No symbolic link is followed, as in LogFile: a dangling link must not count as a missing index.
  file.reset(::open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file && errno == ENOENT)
    return Opened::Absent;
  struct stat status = {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    why = "it cannot be read";
    file.reset();
    return Opened::Misfit;
  }
  fileSize = static_cast<uint64_t>(status.st_size);
  // A run that was killed before its first record leaves an empty index, which counts as none.
  const auto first = next();
  if (!first && readError == 0) {
    file.reset();
    return Opened::Absent;
  }
  const IndexHeader expected;
  if (first)
    header = fromBytes<IndexHeader>(first->data());
  const bool isIndex = first && header.kind == expected.kind && header.magic == expected.magic;
  const bool isKnown =
      header.version == kIndexVersion || header.version == kIndexVersionOfAttributes;
  if (isIndex && isKnown && header.recordSize == expected.recordSize)
    return Opened::Yes;
  why = !first ? "it cannot be read" : isIndex ? "it is of another version" : "it is not an index";
  file.reset();
  return Opened::Misfit;
}

std::optional<IndexBytes> IndexReader::next() {
  if (nextPosition < pieceStart || nextPosition + kIndexRecordSize > pieceStart + pieceLength) {
    if (!fill())
      return std::nullopt;
  }
  IndexBytes bytes;
  memcpy(bytes.data(), piece.data() + (nextPosition - pieceStart), bytes.size());
  if (kindOf(bytes.data()) == IndexKind::None)
    return std::nullopt;
  nextPosition += kIndexRecordSize;
  return bytes;
}

void IndexReader::seek(uint64_t position) {
  nextPosition = position;
}

// Reads the piece that begins with the next record. False when that record is not complete.
bool IndexReader::fill() {
  piece.resize(kPiece);
  pieceStart = nextPosition;
  pieceLength = 0;
  while (pieceLength < piece.size()) {
    const ssize_t count = pread(file.get(), piece.data() + pieceLength, piece.size() - pieceLength,
                                static_cast<off_t>(pieceStart + pieceLength));
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      readError = errno;
    if (count <= 0)
      break;
    pieceLength += static_cast<size_t>(count);
  }
  return pieceLength >= kIndexRecordSize;
}
