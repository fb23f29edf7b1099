#include "zonagent/zone_source.h"

#include <exception>
#include <utility>

#include "services/paths.h"
#include "services/text.h"
#include "zonagent/agent_log.h"
#include "zonagent/nss_module.h"
#include "zonagent/zone_files.h"

namespace zonagent {
namespace {

constexpr const char* kNoCheck = "none";

// These modules answer from a cache, or "not found", while their directory is out of reach.
bool needsOnlineCheck(const std::string& module) {
  return module == "sss" || module == "winbind";
}

std::shared_ptr<ZoneBackend> openModule(const std::string& module,
                                        const BackendSettings& settings) {
  if (needsOnlineCheck(module) && settings.onlineCheck.empty())
    throw AgentError(settings.backend +
                     " gives wrong answers while its directory cannot be reached: set "
                     "zonagent.online.check to a command, or to \"none\" to do without one");
  const std::string command = settings.onlineCheck == kNoCheck ? "" : settings.onlineCheck;
  return std::make_shared<NssModule>(module, command, settings.onlineWindow);
}

}  // namespace

std::shared_ptr<ZoneBackend> openBackend(const BackendSettings& settings) {
  const std::string& text = settings.backend;
  const size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (kind == "files" && !rest.empty())
    return std::make_shared<ZoneFiles>(rest);
  if (kind == "nss" && !rest.empty())
    return openModule(rest, settings);
  throw AgentError("unknown backend " + inQuotes(text) + ": use files:DIR or nss:NAME");
}

ZoneSource::ZoneSource(Options options, AtStart atStart)
    : commandLine(std::move(options)), serviceName(commandLine.service) {
  try {
    take();
  } catch (const std::exception& error) {
    if (atStart == AtStart::MustOpen)
      throw;
    stayClosed(error.what());
  }
}

// Reads the settings and opens or reloads the backend that they name.
void ZoneSource::take() {
  orvs::Properties properties;
  properties.load(paths::kSettings);
  const Settings now = settingsFor(commandLine, properties);
  if (opened == now.backend) {
    inForce->reload();
  } else {
    inForce = openBackend(now.backend);
    opened = now.backend;
  }
  serviceName = now.service;
}

void ZoneSource::reload() {
  const auto before = inForce;
  try {
    take();
  } catch (const std::exception& error) {
    if (opened)
      AGENT_SAY("zone_source",
                "zonagent: reload failed, backend and settings stay as they were: %s",
                error.what());
    else
      stayClosed(error.what());
  }
  if (inForce != before)
    AGENT_SAY("zone_source", "zonagent: %s", state().c_str());
}

void ZoneSource::stayClosed(const std::string& why) {
  inForce = std::make_shared<ClosedBackend>(why);
}

std::string ZoneSource::state() const {
  return (opened ? "answering from " + opened->backend
                 : "not available until SIGHUP or a restart") +
         ": " + inForce->summary();
}

}  // namespace zonagent
