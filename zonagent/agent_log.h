// What the agent tells its administrator: one line a message, in the system log under the tag
// "zonagent" and on standard error.
//
// Where standard error is the journal's (systemd says so in JOURNAL_STREAM), the system log leads
// there as well, and a line that it takes is not written twice. AGENT_SAY uses level 3, which the
// default settings show. Names come from clients and modules: quote them.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>

#include "services/agent/zone_wire.h"
#include "services/say.h"

namespace zonagent {

// To be called before the first message.
void nameTheLog();

orvs::LoggerPtr agentLog();
Echo agentEcho();

// "user "ann"", "gid 70000", or both of an account that is asked for by both.
std::string describe(const orvs::wire::Question& question);

// Lets the same text pass once a second.
class OncePerSecond {
 public:
  using Clock = std::chrono::steady_clock;
  bool passes(const std::string& text, Clock::time_point now);

 private:
  std::map<std::string, Clock::time_point> last;  // of the past second
};

}  // namespace zonagent

#define AGENT_SAY(file, ...) SAY(zonagent::agentLog(), 3, file, zonagent::agentEcho(), __VA_ARGS__)
