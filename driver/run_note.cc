#include "driver/run_note.h"

#include <fstream>
#include <string>

#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/text.h"

namespace {

// The user who logged in. The kernel keeps this uid whatever the process does, through su and sudo
// too. A service has none.
std::string loginUser() {
  std::ifstream file("/proc/self/loginuid");
  uint32_t uid = 0;
  constexpr uint32_t kUnset = 4294967295;
  return file >> uid && uid != kUnset ? "login uid " + std::to_string(uid) : "nobody logged in";
}

const char* modeOf(const CommandOptions& options) {
  if (options.undo)
    return "undo";
  return options.commitAll ? "commit-all" : "commit";
}

std::string treesOf(const CommandOptions& options) {
  std::string trees;
  for (int i = 0; i < options.directoryCount; ++i)
    trees += " " + inQuotes(options.directories[i]);
  return trees.empty() ? "" : " of" + trees;
}

}  // namespace

void noteRun(const orvs::LoggerPtr& logger, const CommandOptions& options, int status) {
  const std::string what = modeOf(options) + treesOf(options);
  const std::string end = interrupt::pending() != 0
                              ? "signal " + std::to_string(interrupt::pending())
                              : "status " + std::to_string(status);
  ORVS_LOG(logger, 3, "cli_idshift", "%s by %s: %lu file(s) changed, %lu account(s) updated, %s",
           what.c_str(), loginUser().c_str(), static_cast<unsigned long>(privateLog.changeCount),
           static_cast<unsigned long>(privateLog.accountCount), end.c_str());
}
