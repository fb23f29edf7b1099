// Compares texts with the content of a file, reading small pieces.
//
// Made for texts in about the order of the file, or scattered over it: both ways a small piece
// costs least. Keeps the last piece, as far as its bytes are final.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class PieceReader {
 public:
  // Whether the file has `text` at `offset`. The bytes before `end` must be final. False when
  // reading fails.
  bool holds(int fd, uint64_t offset, std::string_view text, uint64_t end);

  void forget() { length = 0; }

 private:
  bool read(int fd, uint64_t offset, size_t needed, uint64_t end);

  std::vector<char> piece;
  uint64_t start = 0;  // of the piece in the file
  size_t length = 0;
};
