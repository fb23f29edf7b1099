#include "services/std_streams.h"

#include <fcntl.h>
#include <unistd.h>

bool fillStandardStreams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR | O_CLOEXEC) != descriptor)
      return false;
  }
  return true;
}

UniqueFd openNull(int mode) {
  return UniqueFd(::open("/dev/null", mode | O_CLOEXEC));
}
