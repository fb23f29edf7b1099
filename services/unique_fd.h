// Owns one file descriptor and closes it in the destructor. Move-only. Closing keeps errno.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int owned) : fd(owned) {}
  UniqueFd(UniqueFd&& other) noexcept : fd(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other)
      reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  // The descriptor, or -1. This object stays its owner.
  int get() const { return fd; }
  explicit operator bool() const { return fd >= 0; }

  // Returns the descriptor and stops owning it.
  int release() { return std::exchange(fd, -1); }

  void reset(int newFd = -1) {
    if (fd >= 0) {
      const int savedErrno = errno;
      ::close(fd);
      errno = savedErrno;
    }
    fd = newFd;
  }

 private:
  int fd = -1;
};
