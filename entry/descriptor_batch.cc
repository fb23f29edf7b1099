#include "entry/descriptor_batch.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kMost = 32;

// Where few descriptors may be open, none is kept back.
int mostKept() {
  rlimit limit = {};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur >= rlim_t{8} * kMost ? kMost : 1;
}

}  // namespace

DescriptorBatch::DescriptorBatch() : most(mostKept()) {}

void DescriptorBatch::add(UniqueFd used) {
  const int fd = used.release();
  if (fd < 0)
    return;
  if (count > 0 && fd != first + count)
    closeAll();
  if (count == 0)
    first = fd;
  ++count;
  if (count == most)
    closeAll();
}

void DescriptorBatch::closeAll() {
  const int savedErrno = errno;
  const int end = first + count;
  if (count > 0 &&
      close_range(static_cast<unsigned>(first), static_cast<unsigned>(end - 1), 0) != 0) {
    for (int fd = first; fd < end; ++fd)  // a kernel without the call
      close(fd);
  }
  count = 0;
  errno = savedErrno;
}
