#include "zonagent/agent_signals.h"

#include <signal.h>
#include <sys/signalfd.h>

#include "zonagent/backend.h"

namespace zonagent {
namespace {

sigset_t awaitedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    sigaddset(&set, signal);
  return set;
}

}  // namespace

void prepareSignals() {
  const sigset_t set = awaitedSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_DFL);
}

void unblockSignals() {
  const sigset_t set = awaitedSignals();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

UniqueFd openSignals() {
  const sigset_t set = awaitedSignals();
  UniqueFd fd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd)
    throw AgentError("cannot create a signal descriptor");
  return fd;
}

}  // namespace zonagent
