// `zonagent --check [NAME...]`: tries the backend as the server would, with the same deadline.
//
// Prints on standard output the files behind the backend, whether and how fast the backend answers,
// and whether the online check succeeds. Each name is looked up as a user and as a group, and the
// id that was found is looked up in turn. The last line is the verdict. Changes nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zonagent/backend.h"

namespace zonagent {

// Whether the agent would serve this zone. Reasons against are a lookup without an answer, an
// online check that fails, and an id that cannot be looked up. A name that the zone does not have
// is none.
bool selfCheck(const std::string& backendText,
               const std::shared_ptr<ZoneBackend>& backend,
               const std::vector<std::string>& names);

}  // namespace zonagent
