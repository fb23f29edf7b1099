// Where the agent's answers come from.
//
// Two implementations: zone files (zone_files.h), which answer at once, and a host's NSS module
// (nss_module.h), which may block for minutes and is therefore asked from worker threads. Failures
// while a backend is opened are AgentErrors; later ones are the verdict Unavailable, which is
// "unknown" and never "absent".
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "services/zone_wire.h"

namespace zonagent {

// Why the agent cannot start, or a zone file cannot be used. Caught in main and at reload.
class AgentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Verdict { Found, NotFound, Unavailable };

struct Answer {
  Verdict verdict = Verdict::Unavailable;
  orvs::wire::Record record;  // when Found: a good name, and an id that is one
};

enum class Online { NotAsked, Yes, No };

class ZoneBackend {
 public:
  ZoneBackend() = default;
  ZoneBackend(const ZoneBackend&) = delete;
  ZoneBackend& operator=(const ZoneBackend&) = delete;
  virtual ~ZoneBackend() = default;

  // REQUIRES: the question has either a name or an id. By id, a found record bears that id. Called
  // from several threads at once when mayBlock().
  virtual Answer find(const orvs::wire::Question& question) = 0;
  virtual bool mayBlock() const = 0;

  // Forgets what it remembers and reads anew.
  virtual void reload() = 0;

  // For --check: the files behind it, one a line, and whether its directory can be reached.
  virtual std::string sources() const = 0;
  virtual Online online() = 0;
};

// "files:DIR" or "nss:NAME". Throws AgentError. `onlineCheck` is a command with blanks between its
// words, or empty; for nss alone.
std::shared_ptr<ZoneBackend> openBackend(const std::string& backend,
                                         const std::string& onlineCheck);

}  // namespace zonagent
