// How long the client waits for the agent; a header of its own so that nobody but the client and
// its tests sees it. Tests of hanging agents lower it; nothing else writes it.
#pragma once

#include <chrono>

namespace orvs::internal {

extern std::chrono::milliseconds requestDeadline;

}  // namespace orvs::internal
