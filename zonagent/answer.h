// What the agent says to one message: the decision alone. Asks the backend, touches nothing else.
#pragma once

#include <string>

#include "zonagent/backend.h"

namespace zonagent {

struct Action {
  enum class What { Send, StaySilent, HangUp };
  What what = What::HangUp;
  std::string bytes = {};  // to send, NUL included
  std::string why = {};    // of an answer "not available", for the log; without names
};

// Whether the backend may have to be asked. All else can be answered while it hangs.
bool takesLookup(const orvs::wire::Request& request);

// `service` is the name under which the agent serves; other names get BadService. Where it is
// empty, any name will do.
Action decide(const orvs::wire::Request& request, const std::string& service, ZoneBackend& backend);

// What is sent when the backend cannot tell.
Action unavailable(const std::string& why);

}  // namespace zonagent
