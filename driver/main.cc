// The edge between the tool and the system: descriptors, signals and the outermost net.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "driver/cli_idshift.h"
#include "driver/exit_status.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/logger.h"
#include "services/progress.h"
#include "services/say.h"
#include "services/std_streams.h"

namespace {

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
  fillStandardStreams();
  interrupt::install();
  progress::install();
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
