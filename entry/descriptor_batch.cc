#include "entry/descriptor_batch.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr int kMost = 32;

// Where few descriptors may be open, each one is closed at once.
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
  const auto end = runs.begin() + static_cast<std::ptrdiff_t>(begun);
  const auto found =
      std::find_if(runs.begin(), end, [fd](const Run& run) { return fd == run.first + run.count; });
  if (found != end) {
    ++found->count;
  } else {
    if (begun == runs.size())
      closeAll();
    runs[begun++] = {fd, 1};
  }
  if (++count == most)
    closeAll();
}

void DescriptorBatch::closeAll() {
  const int savedErrno = errno;
  for (size_t i = 0; i < begun; ++i)
    close(runs[i]);
  begun = 0;
  count = 0;
  errno = savedErrno;
}

void DescriptorBatch::close(const Run& run) {
  const int end = run.first + run.count;
  if (close_range(static_cast<unsigned>(run.first), static_cast<unsigned>(end - 1), 0) == 0)
    return;
  for (int fd = run.first; fd < end; ++fd)  // for a kernel without close_range()
    ::close(fd);
}
