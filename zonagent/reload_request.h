// Makes a running agent reload, and waits until it has done so. "systemctl reload" runs this.
//
// The agent handles signals before requests. So when a request that was sent after SIGHUP is
// answered, the reload is over; any request will do. Whether the reload succeeded is in the agent's
// log.
#pragma once

#include <sys/types.h>

#include <string>

namespace zonagent {

// Throws AgentError when the signal cannot be sent or the agent does not answer within a minute.
void requestReload(pid_t agent, const std::string& socketPath);

}  // namespace zonagent
