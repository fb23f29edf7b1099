#include "tests/accountdb/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <shadow.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

const char* armedCall = nullptr;
int callsLeft = 0;
int armedError = 0;

// Counts a call; true when this is the one that fails, with errno set.
bool strikes(const char* call) {
  if (armedCall == nullptr || std::strcmp(armedCall, call) != 0 || callsLeft == 0 ||
      --callsLeft != 0)
    return false;
  errno = armedError;
  return true;
}

template <class Function>
Function* realOne(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace faults {

void arm(const char* call, int nth, int error) {
  armedCall = call;
  callsLeft = nth;
  armedError = error;
}

bool disarm() {
  armedCall = nullptr;
  return callsLeft == 0;
}

}  // namespace faults

// A function of the C library that passes everything on unless a fault strikes.
#define PASS_ON(call, parameters, arguments, specifier, failure) \
  int call parameters specifier {                                \
    static auto* const real = realOne<int parameters>(#call);    \
    return strikes(#call) ? failure : real arguments;            \
  }

// The C library's parameter names are reserved ones, and its own declarations say noexcept.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
extern "C" {

PASS_ON(link, (const char* from, const char* to), (from, to), noexcept, -1)
PASS_ON(stat, (const char* path, struct stat* info), (path, info), noexcept, -1)
PASS_ON(fchown, (int fd, uid_t uid, gid_t gid), (fd, uid, gid), noexcept, -1)
PASS_ON(fchmod, (int fd, mode_t mode), (fd, mode), noexcept, -1)
PASS_ON(posix_fallocate, (int fd, off_t offset, off_t size), (fd, offset, size), , armedError)
PASS_ON(fsync, (int fd), (fd), , -1)
PASS_ON(lckpwdf, (), (), noexcept, -1)
PASS_ON(rename, (const char* from, const char* to), (from, to), noexcept, -1)

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  static auto* const real = realOne<int(const char*, int, ...)>("open");
  return strikes("open") ? -1 : real(path, flags, mode);
}

ssize_t getdelim(char** line, size_t* size, int delimiter, FILE* stream) {
  static auto* const real = realOne<ssize_t(char**, size_t*, int, FILE*)>("getdelim");
  return strikes("getdelim") ? -1 : real(line, size, delimiter, stream);
}

ssize_t write(int fd, const void* bytes, size_t size) {
  static auto* const real = realOne<ssize_t(int, const void*, size_t)>("write");
  if (!strikes("write"))
    return real(fd, bytes, size);
  real(fd, bytes, size / 2);
  errno = armedError;
  return -1;
}

int close(int fd) {
  static auto* const real = realOne<int(int)>("close");
  const int result = real(fd);
  return strikes("close") ? -1 : result;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
