#include "zonagent/backend.h"

#include "zonagent/nss_module.h"
#include "zonagent/zone_files.h"

namespace zonagent {

std::shared_ptr<ZoneBackend> openBackend(const std::string& backend,
                                         const std::string& onlineCheck) {
  const size_t colon = backend.find(':');
  const std::string kind = backend.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : backend.substr(colon + 1);
  if (kind == "files" && !rest.empty())
    return std::make_shared<ZoneFiles>(rest);
  if (kind == "nss" && !rest.empty())
    return std::make_shared<NssModule>(rest, onlineCheck);
  throw AgentError("unknown backend \"" + backend + "\": it must be files:DIR or nss:NAME");
}

}  // namespace zonagent
