// How a record is appended. The plain way, a write() for each piece, costs two system calls for
// each entry, and a full disk shows only at the write. So room is reserved in large steps, a window
// of the file is mapped, and a record is copied into it. The copy survives the death of this
// process, because the pages belong to the kernel; only a power cut can lose them before the next
// sync.
//
// The copy itself can be cut short by a kill. So a piece is stored with its first byte last: until
// that byte is there the piece begins with a NUL, and readers stop at the first NUL.
//
// A mapped write to a page for which the disk has no room kills the process by SIGBUS. So the
// mapping is used only on file systems that keep reserved room; elsewhere each piece is one
// write().

#include "privatelog/log_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

namespace {

constexpr size_t kAllocationStep = size_t{1} << 20;
constexpr size_t kSmallestStep = 4096;
constexpr unsigned kXfsMagic = 0x58465342;

// Whether the file system keeps reserved room. On others (copy on write, network) a write into the
// mapping can still meet a full disk, and SIGBUS would then kill the process.
bool promisesRoom(int fd) {
  struct statfs fileSystem = {};
  if (fstatfs(fd, &fileSystem) != 0)
    return false;
  const auto magic = static_cast<unsigned>(fileSystem.f_type);
  return magic == EXT4_SUPER_MAGIC || magic == kXfsMagic || magic == TMPFS_MAGIC ||
         magic == OVERLAYFS_SUPER_MAGIC;
}

// Stores the first byte last: until then the piece begins with a NUL, which ends the content.
void copyKillSafe(char* target, std::string_view text) {
  memcpy(target + 1, text.data() + 1, text.size() - 1);
  std::atomic_ref<char>(*target).store(text.front(), std::memory_order_release);
}

int64_t secondsNow() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now.tv_sec;
}

bool truncateTo(int fd, uint64_t size) {
  return ftruncate(fd, static_cast<off_t>(size)) == 0;
}

}  // namespace

bool LogFile::open(const char* path, mode_t creationMode) {
  close();
  constexpr int kFlags =
      O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  file.reset(::open(path, kFlags, creationMode));
  if (file && check()) {
    directory.assign(path, std::string_view(path).rfind('/') + 1);
    means = Means::Undecided;
    roomIsPromised = promisesRoom(file.get());
    contentEnd = allocatedEnd = readyEnd = 0;
    allocationStep = kAllocationStep;
    syncError = 0;
    lastSync = secondsNow();
    return true;
  }
  file.reset();
  return false;
}

// Whether only root, or the user who runs this, can have written the file.
bool LogFile::check() const {
  struct stat status = {};
  if (fstat(file.get(), &status) != 0)
    return false;
  const bool trusted = S_ISREG(status.st_mode) && status.st_nlink == 1 &&
                       (status.st_uid == 0 || status.st_uid == geteuid()) &&
                       (status.st_mode & S_IWOTH) == 0 &&
                       ((status.st_mode & S_IWGRP) == 0 || status.st_gid == 0);
  if (!trusted)
    errno = EPERM;
  return trusted;
}

bool LogFile::setEnd(uint64_t newEnd) {
  struct stat status = {};
  if (fstat(file.get(), &status) != 0)
    return false;
  const auto size = static_cast<uint64_t>(status.st_size);
  if (size < newEnd) {
    errno = ESTALE;
    return false;
  }
  if (size > newEnd && !truncateTo(file.get(), newEnd))
    return false;
  contentEnd = allocatedEnd = newEnd;
  readyEnd = 0;
  pieces.forget();
  return true;
}

bool LogFile::makeReady(size_t length) {
  readyEnd = 0;
  if (syncError != 0) {
    errno = syncError;
    return false;
  }
  if (!writePending())
    return false;
  if (means == Means::Undecided)
    decideMeans();
  if (means == Means::Written)
    return true;
  const uint64_t needed = contentEnd + length;
  if (!allocate(needed) || window.at(file.get(), contentEnd, length) == nullptr)
    return false;
  readyEnd = window.populate(contentEnd, allocatedEnd);
  return true;
}

// Uses write() for a file that allows no mapping (an append-only file) or no reservation.
void LogFile::decideMeans() {
  means = Means::Written;
  if (!roomIsPromised || window.at(file.get(), contentEnd, 1) == nullptr)
    return;
  if (allocate(contentEnd + 1) || (errno != EOPNOTSUPP && errno != ENOSYS && errno != EPERM))
    means = Means::Mapped;
}

// Reserves in smaller steps when the file system is nearly full, down to what is needed.
bool LogFile::allocate(uint64_t needed) {
  while (needed > allocatedEnd) {
    const uint64_t wanted = std::max<uint64_t>(needed, allocatedEnd + allocationStep);
    const auto from = static_cast<off_t>(allocatedEnd);
    if (fallocate(file.get(), 0, from, static_cast<off_t>(wanted) - from) == 0) {
      allocatedEnd = wanted;
      break;
    }
    if (errno == EINTR)
      continue;
    const int error = errno;
    if (!truncateTo(file.get(), allocatedEnd)) {  // a failed attempt may have reserved a part
      errno = error;
      return false;
    }
    errno = error;
    const bool isShort = error == ENOSPC || error == EDQUOT || error == EFBIG;
    if (!isShort || wanted == needed)
      return false;
    allocationStep = allocationStep > kSmallestStep ? allocationStep / 2 : 0;
  }
  return true;
}

bool LogFile::append(std::string_view text) {
  if (!reserve(text.size()))
    return false;
  dirty = true;
  if (means == Means::Written)
    return writeOut(text);
  copyKillSafe(window.at(file.get(), contentEnd, text.size()), text);
  contentEnd += text.size();
  return true;
}

void LogFile::appendKept(std::string_view text) {
  if (!append(text))
    pending += text;
}

bool LogFile::writePending() {
  if (pending.empty())
    return true;
  const std::string text = std::exchange(pending, std::string());
  if (append(text))
    return true;
  pending = text;
  return false;
}

// Mostly one write(). When a piece does not fit, its written part is removed.
bool LogFile::writeOut(std::string_view text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(file.get(), text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0) {
      const int error = count == 0 ? ENOSPC : errno;
      if (done > 0 && !truncateTo(file.get(), contentEnd))
        syncError = error;  // the piece stays torn, so nothing may be appended to it
      errno = error;
      return false;
    }
    done += static_cast<size_t>(count);
  }
  contentEnd += text.size();
  allocatedEnd = contentEnd;
  return true;
}

bool LogFile::overwrite(uint64_t offset, std::string_view bytes) {
  dirty = true;
  if (char* target = roomIsPromised ? markWindow.at(file.get(), offset, bytes.size()) : nullptr) {
    for (size_t i = 0; i < bytes.size(); ++i)
      std::atomic_ref<char>(target[i]).store(bytes[i], std::memory_order_release);
    return true;
  }
  // With O_APPEND pwrite() appends instead of overwriting.
  const int flags = fcntl(file.get(), F_GETFL);
  if (flags < 0 || fcntl(file.get(), F_SETFL, flags & ~O_APPEND) != 0)
    return false;
  const ssize_t count = pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
  const int error = errno;
  fcntl(file.get(), F_SETFL, flags);
  errno = error;
  return count == static_cast<ssize_t>(bytes.size());
}

// The first byte goes first: once that is NUL nothing behind it counts.
bool LogFile::takeBack(uint64_t newEnd) {
  if (means == Means::Mapped) {
    const auto length = static_cast<size_t>(contentEnd - newEnd);
    char* target = window.at(file.get(), newEnd, length);
    if (target == nullptr)
      return false;
    std::atomic_ref<char>(*target).store('\0', std::memory_order_release);
    memset(target, 0, length);
  } else if (!truncateTo(file.get(), newEnd)) {
    return false;
  } else {
    allocatedEnd = newEnd;
  }
  contentEnd = newEnd;
  readyEnd = 0;
  return true;
}

bool LogFile::sync() {
  lastSync = secondsNow();
  const bool written = writePending();
  if (dirty && fdatasync(file.get()) != 0)
    syncError = errno;
  else
    dirty = false;
  if (syncError != 0) {
    readyEnd = 0;
    errno = syncError;
  }
  return written && syncError == 0;
}

bool LogFile::syncName() {
  const UniqueFd holder(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!holder || (fsync(holder.get()) != 0 && errno != EINVAL))
    syncError = errno;
  return sync();
}

bool LogFile::close() {
  if (!file)
    return true;
  bool safe = writePending();
  readyEnd = 0;
  window.unmap();
  markWindow.unmap();
  if (allocatedEnd > contentEnd) {
    safe = truncateTo(file.get(), contentEnd) && safe;
    dirty = true;  // the new end of the file needs a sync even if all records have had theirs
  }
  safe = sync() && safe;
  const int error = errno;
  file.reset();
  pending.clear();
  errno = error;
  return safe;
}
