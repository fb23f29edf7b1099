// Asks a running agent to reload, and waits until it has: what "systemctl reload" runs.
//
// The agent takes its signals before it takes requests. So the reply to a request that was made
// after the signal comes from behind the reload, whatever the request is. What the reload was worth
// stands in the agent's log.
#pragma once

#include <sys/types.h>

#include <string>

namespace zonagent {

// Throws AgentError when the agent cannot be signalled or does not answer within a minute.
void requestReload(pid_t agent, const std::string& socketPath);

}  // namespace zonagent
