// The agent's signals. SIGTERM, SIGINT and SIGHUP are blocked from the first moment on, so that one
// that comes while the agent starts waits for the server, which reads them from a descriptor.
// SIGPIPE is ignored: standard error may go away. SIGCHLD is not, whatever the parent did, so that
// the online check's exit status arrives.
#pragma once

#include "services/unique_fd.h"

namespace zonagent {

// For the whole process: before other threads are made.
void prepareSignals();

// Gives the three back their default effect, for what runs to an end by itself.
void unblockSignals();

// Readable when one of the three has come. Throws AgentError.
UniqueFd openSignals();

}  // namespace zonagent
