// The backend in force and the service name, as the command line and the settings file name them.
//
// The constructor opens the backend. A reload reads the settings file again: a backend whose
// settings have changed is opened anew, any other is told to reload. When a reload fails, the
// backend and the service name stay as they were and the reason is logged. The settings of the log
// (log.level and others) are read at start only. For one thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zonagent/backend.h"
#include "zonagent/options.h"

namespace zonagent {

// Throws AgentError. A module that answers from a cache (SSSD, winbind) is refused before it is
// loaded, unless zonagent.online.check is set, be it to "none".
std::shared_ptr<ZoneBackend> openBackend(const BackendSettings& settings);

class ZoneSource {
 public:
  // What the constructor does when the settings or the backend are unusable. MustOpen: throw the
  // AgentError or ORVSException. MayStayClosed: use a ClosedBackend, which a reload may replace.
  enum class AtStart { MustOpen, MayStayClosed };

  ZoneSource(Options options, AtStart atStart);

  void reload();

  const std::shared_ptr<ZoneBackend>& backend() const { return inForce; }
  // Empty while no backend was ever opened and the command line names no service: requests for any
  // service are then answered.
  const std::string& service() const { return serviceName; }
  // For the log: "answering from BACKEND: SUMMARY", or why no backend is open.
  std::string state() const;

 private:
  void take();
  void stayClosed(const std::string& why);

  Options commandLine;
  std::string serviceName;
  std::optional<BackendSettings> opened;  // none while the backend in force is a ClosedBackend
  std::shared_ptr<ZoneBackend> inForce;
};

}  // namespace zonagent
