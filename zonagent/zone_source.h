// The backend in force and the service name, as command line and settings file have them: made at
// start, and anew at a reload.
//
// A reload reads the settings file again. Where what it says of the backend has changed, the
// backend is opened anew, else the one in force is told to reload. When that fails the last good
// one stays in force and the reason is logged. Settings of the log are read at start alone.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zonagent/backend.h"
#include "zonagent/options.h"

namespace zonagent {

// Throws AgentError. A module that answers from a cache is refused, before it is loaded, unless
// there is an online check or it is "none".
std::shared_ptr<ZoneBackend> openBackend(const BackendSettings& settings);

class ZoneSource {
 public:
  // What to do when the settings or the backend are of no use at start: let the AgentError or
  // ORVSException out, or stand a ClosedBackend in for it, for the next reload to replace.
  enum class AtStart { MustOpen, MayStayClosed };

  ZoneSource(Options options, AtStart atStart);

  void reload();

  const std::shared_ptr<ZoneBackend>& backend() const { return inForce; }
  // Empty while no backend could be opened and the command line has none: any name will do then.
  const std::string& service() const { return serviceName; }
  // "answering from BACKEND: SUMMARY", or why it cannot, for the log.
  std::string state() const;

 private:
  void take();
  void stayClosed(const std::string& why);

  Options commandLine;
  std::string serviceName;
  std::optional<BackendSettings> opened;  // of the backend in force; none: it is a ClosedBackend
  std::shared_ptr<ZoneBackend> inForce;
};

}  // namespace zonagent
