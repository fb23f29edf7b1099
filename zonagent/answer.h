// Decides how the agent answers one message. Asks the backend and has no other effect.
#pragma once

#include <string>

#include "zonagent/backend.h"

namespace zonagent {

struct Action {
  enum class What { Send, StaySilent, HangUp };
  What what = What::HangUp;
  std::string bytes = {};  // to send, NUL included
  std::string why = {};    // for the log: the reason of a "not available", without account names
};

// Whether the request needs the backend. Other requests are answered even while the backend hangs.
bool takesLookup(const orvs::wire::Request& request);

// `service` is the agent's service name; a request for another name gets BadService. If `service`
// is empty, any name is accepted.
Action decide(const orvs::wire::Request& request, const std::string& service, ZoneBackend& backend);

// The answer "not available", for a lookup that the backend could not answer.
Action unavailable(const std::string& why);

}  // namespace zonagent
