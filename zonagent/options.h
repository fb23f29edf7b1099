// The agent's options. Each comes from the command line, else from the settings file, else from a
// fixed default. Nothing here opens a backend or a socket.
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
  std::vector<std::string> names;  // of accounts to look up, with --check
  pid_t agent = 0;                 // the process to reload, with --reload
};

// Throws AgentError, whose text says what is wrong with the command line.
Options parseOptions(int argc, const char* const* argv);

// The settings that openBackend() needs.
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

// Throws AgentError for an invalid value in the settings file.
Settings settingsFor(const Options& commandLine, orvs::Properties& properties);

extern const char* const kUsage;

}  // namespace zonagent
