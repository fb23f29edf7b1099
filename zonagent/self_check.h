// `zonagent --check [NAME...]`: tries the backend as the server would and says on standard output
// what it finds: the files behind it, whether it answers and how fast, whether its directory is
// online, and for each name what it is as a user and as a group, and whether its id leads back to
// it. The last line is the verdict.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zonagent/backend.h"

namespace zonagent {

// Whether the agent would serve from it. A name that the zone does not have is no reason against
// it; a lookup without an answer, a directory that is offline and an id that cannot be looked up
// are.
bool selfCheck(const std::string& backendText,
               const std::shared_ptr<ZoneBackend>& backend,
               const std::vector<std::string>& names);

}  // namespace zonagent
