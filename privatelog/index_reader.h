// Reads the records of the log's index, one after the other.
//
// The first record that is not there, or is cut short, ends the index: what lies behind it is room
// that was reserved. Reads in pieces; memory stays at one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "privatelog/index_record.h"
#include "services/unique_fd.h"

class IndexReader {
 public:
  enum class Opened { Yes, Absent, Misfit };

  // Opens the index and reads its header. Misfit: it cannot be read, or is of another kind or a
  // newer version; reason() tells.
  Opened open(const char* path);

  bool isOpen() const { return static_cast<bool>(file); }
  const char* reason() const { return why; }
  uint64_t seed() const { return header.seed; }
  uint64_t newestPlan() const { return header.newestPlan; }

  // The next record, and where it stands. Nothing at the end.
  std::optional<IndexBytes> next();
  uint64_t position() const { return nextPosition - kIndexRecordSize; }  // of the record read last
  uint64_t end() const { return nextPosition; }                          // behind it

  // Goes back or forward: the next record is the one at `position`.
  void seek(uint64_t position);

  // errno of the read that failed, or 0.
  int error() const { return readError; }

 private:
  bool fill();

  UniqueFd file;
  IndexHeader header;
  const char* why = "";
  std::vector<char> piece;
  uint64_t pieceStart = 0;  // in the file
  size_t pieceLength = 0;
  uint64_t nextPosition = 0;
  int readError = 0;
};
