#include "services/cli_common.h"

#include <ostream>

#include "services/properties.h"

bool machineJoined(const orvs::LoggerPtr& logger, std::ostream* errorStream) {
  if (orvs::joined())
    return true;
  constexpr const char* kNotJoined = "Machine is not joined to any domain.";
  if (errorStream != nullptr && errorStream->good())
    *errorStream << kNotJoined << '\n';
  ORVS_LOG(logger, 5, "cli_common", "%s", kNotJoined);
  return false;
}
