// The agent's command line. What is not given comes from the settings file, else from fixed
// defaults.
#pragma once

#include <string>
#include <vector>

namespace zonagent {

struct Options {
  enum class Mode { Serve, Check, Help, Version };
  Mode mode = Mode::Serve;
  std::string backend;  // empty: not given
  std::string socket;
  std::string service;
  std::vector<std::string> names;  // to look up with --check
};

// Throws AgentError with what is wrong.
Options parseOptions(int argc, const char* const* argv);

// Fills what is empty. Throws ORVSException for a settings file that cannot be read.
void fillFromSettings(Options& options);

extern const char* const kUsage;

}  // namespace zonagent
