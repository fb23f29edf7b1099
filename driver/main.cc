// The edge between the tool and the system: descriptors, signals and the outermost net.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "driver/cli_idshift.h"
#include "driver/exit_status.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/logger.h"
#include "services/say.h"

namespace {

// A caller may have closed standard streams. Their numbers must not go to the private log or to an
// account file, where a message would then be written.
void fillStandardDescriptors() {
  int fd;
  do {
    fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0)
    close(fd);
}

int runGuarded(int argc, char** argv) {
  try {
    return main2(argc, argv);
  } catch (const std::exception& error) {
    SAY(getLogger("cli.idshift", false), 1, "cli_idshift", Echo::Stderr, "Error: %s", error.what());
  } catch (...) {
    SAY(getLogger("cli.idshift", false), 1, "cli_idshift", Echo::Stderr,
        "Error: Unknown exception");
  }
  return kExitException;
}

}  // namespace

int main(int argc, char** argv) {
  fillStandardDescriptors();
  interrupt::install();
  const int status = runGuarded(argc, argv);
  // The tables go to standard output alone: warn if they were lost. The status reports on files
  // only.
  if (fflush(stdout) != 0 && errno != EPIPE)
    fprintf(stderr, "Warning: cannot write to standard output: %s\n", strerror(errno));
  if (const int signal = interrupt::pending(); signal != 0) {
    privateLog.release();  // such a death runs no destructors
    interrupt::dieOf(signal);
  }
  return status;
}
