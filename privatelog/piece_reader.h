// Compares texts with what stands in a file, reading it in small pieces.
//
// Made for texts that are asked for in about the order of the file, or here and there: then a
// small piece costs least. The piece read last is kept, as far as its bytes are known to be final.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class PieceReader {
 public:
  // Whether `text` stands at `offset`. What lies before `end` is never written again. False when
  // the file cannot be read there.
  bool holds(int fd, uint64_t offset, std::string_view text, uint64_t end);

  void forget() { length = 0; }

 private:
  bool read(int fd, uint64_t offset, size_t needed, uint64_t end);

  std::vector<char> piece;
  uint64_t start = 0;  // of the piece in the file
  size_t length = 0;
};
