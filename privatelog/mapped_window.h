// A window: one writable piece of a file mapped into memory, which moves forward with the writer.
//
// The window has a few MiB, so that neither address space nor resident memory grows with the file.
// Every reader of the file sees the bytes at once, and they survive the death of this process. The
// caller makes sure that the file has room for them.
#pragma once

#include <cstddef>
#include <cstdint>

class MappedWindow {
 public:
  MappedWindow() = default;
  ~MappedWindow() { unmap(); }
  MappedWindow(const MappedWindow&) = delete;
  MappedWindow& operator=(const MappedWindow&) = delete;

  // At least `length` bytes from `offset` on; moves the window if needed. Null with errno, and then
  // the window is unchanged. The pointer is valid until the next call.
  char* at(int fd, uint64_t offset, size_t length) {
    const bool isInside = offset >= start && offset + length <= start + size;
    return isInside || moveTo(fd, offset, length) ? bytes + (offset - start) : nullptr;
  }

  // Brings the bytes from `offset` to `end`, which the file must have, into memory at once. Returns
  // `end`, or the end of the window if that comes first.
  uint64_t populate(uint64_t offset, uint64_t end);

  void unmap();

 private:
  bool moveTo(int fd, uint64_t offset, size_t length);

  char* bytes = nullptr;
  uint64_t start = 0;  // in the file; whole pages
  size_t size = 0;
};
