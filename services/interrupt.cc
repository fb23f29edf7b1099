#include "services/interrupt.h"

#include <signal.h>
#include <stdlib.h>

#include <array>

namespace interrupt {
namespace {

void remember(int signal) {
  if (firstSignal == 0)
    firstSignal = signal;
}

}  // namespace

void install() {
  struct sigaction action = {};
  action.sa_handler = remember;
  sigemptyset(&action.sa_mask);
  for (const int signal : std::array{SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    // A signal that the parent had ignored (nohup) stays ignored.
    struct sigaction inherited = {};
    if (sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN)
      continue;
    sigaction(signal, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &action, nullptr);
  action.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &action, nullptr);
}

void dieOf(int signal) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  raise(signal);
  _exit(128 + signal);  // not reached: the default action of these signals ends the process
}

}  // namespace interrupt
