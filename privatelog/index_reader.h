// Reads the records of the log's index in order.
//
// The index ends at the first record that is cut short or whose kind is 0: behind it lies reserved
// room. Reads in pieces and keeps one piece in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "privatelog/index_record.h"
#include "services/unique_fd.h"

class IndexReader {
 public:
  enum class Opened { Yes, Absent, Misfit };

  // Opens the index and reads its header. Misfit: the file cannot be read, is no index, or has an
  // unknown version; reason() says which.
  Opened open(const char* path);

  bool isOpen() const { return static_cast<bool>(file); }
  const char* reason() const { return why; }
  uint64_t seed() const { return header.seed; }
  uint64_t newestPlan() const { return header.newestPlan; }

  // How many records there can be, by the size of the file.
  uint64_t mostRecords() const { return fileSize / kIndexRecordSize; }

  // The next record, or nothing at the end. position() and end() are those of the record that was
  // read last.
  std::optional<IndexBytes> next();
  uint64_t position() const { return nextPosition - kIndexRecordSize; }
  uint64_t end() const { return nextPosition; }

  // Makes the record at `position` the next one.
  void seek(uint64_t position);

  // errno of the read that failed, or 0.
  int error() const { return readError; }

 private:
  bool fill();

  UniqueFd file;
  uint64_t fileSize = 0;  // when it was opened
  IndexHeader header;
  const char* why = "";
  std::vector<char> piece;
  uint64_t pieceStart = 0;  // in the file
  size_t pieceLength = 0;
  uint64_t nextPosition = 0;
  int readError = 0;
};
