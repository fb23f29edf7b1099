// How long the client waits for the agent. Only the client and its tests include this header. Tests
// of hanging agents lower the value; nothing else writes it.
#pragma once

#include <chrono>

namespace orvs::internal {

extern std::chrono::milliseconds requestDeadline;

}  // namespace orvs::internal
