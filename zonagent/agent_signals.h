// The agent's signals. SIGTERM, SIGINT and SIGHUP are blocked from the first moment on. A signal
// that comes while the agent starts thus waits for the server, which reads signals from a
// descriptor. SIGPIPE is ignored: whoever reads standard error may go away. SIGCHLD gets its
// default action even if the parent ignored it: otherwise the exit status of the online check would
// be lost.
#pragma once

#include "services/unique_fd.h"

namespace zonagent {

// Call before the process has other threads, which inherit the blocked signals.
void prepareSignals();

// Lets the three signals end the process again: for --check and --reload, which do not serve.
void unblockSignals();

// A signalfd, readable when one of the three has come. Throws AgentError.
UniqueFd openSignals();

}  // namespace zonagent
