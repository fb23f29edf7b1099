// One writable piece of a file in memory, which moves forward with the writer.
//
// The window is a few MiB long, so that neither address space nor resident memory grow with the
// file. Bytes are shared with every reader of the file at once and survive the death of this
// process. The caller sees to it that the file has room where it writes.
#pragma once

#include <cstddef>
#include <cstdint>

class MappedWindow {
 public:
  MappedWindow() = default;
  ~MappedWindow() { unmap(); }
  MappedWindow(const MappedWindow&) = delete;
  MappedWindow& operator=(const MappedWindow&) = delete;

  // The bytes from `offset` on, at least `length` of them, moving the window where needed. Null
  // with errno; the old window then stands. The pointer is valid until the next call.
  char* at(int fd, uint64_t offset, size_t length) {
    const bool isInside = offset >= start && offset + length <= start + size;
    return isInside || moveTo(fd, offset, length) ? bytes + (offset - start) : nullptr;
  }

  // Brings the bytes from `offset` to `end` into memory at once, as far as the window reaches, and
  // tells how far that is. The file must have them.
  uint64_t populate(uint64_t offset, uint64_t end);

  void unmap();

 private:
  bool moveTo(int fd, uint64_t offset, size_t length);

  char* bytes = nullptr;
  uint64_t start = 0;  // in the file; whole pages
  size_t size = 0;
};
