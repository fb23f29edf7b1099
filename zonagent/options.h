// What the agent is told: its command line, and the settings file for what is not given there, else
// fixed defaults.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "services/properties.h"

namespace zonagent {

struct Options {
  enum class Mode { Serve, Check, Reload, Help, Version };
  Mode mode = Mode::Serve;
  std::string backend;  // empty: not given
  std::string socket;
  std::string service;
  std::vector<std::string> names;  // to look up with --check
  pid_t agent = 0;                 // to reload
};

// Throws AgentError with what is wrong.
Options parseOptions(int argc, const char* const* argv);

// What a backend is opened with.
struct BackendSettings {
  std::string backend;                   // "files:DIR" or "nss:NAME"
  std::string onlineCheck = {};          // words of a command, "none", or empty: not set
  std::chrono::seconds onlineWindow{2};  // see online_check.h

  bool operator==(const BackendSettings&) const = default;
};

struct Settings {
  BackendSettings backend;
  std::string service;
};

// Throws AgentError for a value that cannot be.
Settings settingsFor(const Options& commandLine, orvs::Properties& properties);

extern const char* const kUsage;

}  // namespace zonagent
