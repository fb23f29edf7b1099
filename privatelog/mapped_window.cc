#include "privatelog/mapped_window.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr size_t kWindow = size_t{4} << 20;

}  // namespace

bool MappedWindow::moveTo(int fd, uint64_t offset, size_t length) {
  const uint64_t newStart = offset & ~(static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) - 1);
  const size_t newSize = std::max<size_t>(kWindow, offset - newStart + length);
  void* mapped =
      mmap(nullptr, newSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(newStart));
  if (mapped == MAP_FAILED)
    return false;
  unmap();
  bytes = static_cast<char*>(mapped);
  start = newStart;
  size = newSize;
  return true;
}

uint64_t MappedWindow::populate(uint64_t offset, uint64_t end) {
  const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const uint64_t first = offset / page * page;
  const uint64_t last = std::min(end, start + size);
#ifdef MADV_POPULATE_WRITE
  // On an older kernel this fails, and pages are brought in one by one.
  madvise(bytes + (first - start), last - first, MADV_POPULATE_WRITE);
#endif
  return last;
}

void MappedWindow::unmap() {
  if (bytes != nullptr)
    munmap(bytes, size);
  bytes = nullptr;
  size = 0;
}
