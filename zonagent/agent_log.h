// The agent's messages to its administrator: one line each, in the system log under the tag
// "zonagent" and on standard error.
//
// When standard error is the journal (systemd says so in JOURNAL_STREAM), a message that the system
// log takes is not printed as well, because both lead to the journal. AGENT_SAY uses level 3
// (WARN), which the default settings show. Names come from clients and modules: quote them with
// describe() or inQuotes().
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>

#include "services/agent/zone_wire.h"
#include "services/say.h"

namespace zonagent {

// Sets the tag. Call before the first message.
void nameTheLog();

orvs::LoggerPtr agentLog();
Echo agentEcho();

// The question in words: user "ann", or gid 70000, or group "staff", gid 70000.
std::string describe(const orvs::wire::Question& question);

// Lets each text pass at most once a second.
class OncePerSecond {
 public:
  using Clock = std::chrono::steady_clock;
  bool passes(const std::string& text, Clock::time_point now);

 private:
  std::map<std::string, Clock::time_point> last;  // texts that passed within the past second
};

}  // namespace zonagent

#define AGENT_SAY(file, ...) SAY(zonagent::agentLog(), 3, file, zonagent::agentEcho(), __VA_ARGS__)
