// One owner for one file descriptor; closes it when it goes. Move-only. errno is kept by the close.
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

  // The descriptor, or -1; still owned here.
  int get() const { return fd; }
  explicit operator bool() const { return fd >= 0; }

  // Gives the descriptor to the caller.
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
