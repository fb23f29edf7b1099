// Where the agent's answers come from.
//
// Two implementations: zone files (zone_files.h), which answer at once, and a host's NSS module
// (nss_module.h), which may block for minutes and is therefore asked from worker threads. Failures
// while a backend is opened are AgentErrors; later ones are the verdict Unavailable, which is
// "unknown" and never "absent". A third one stands in for a backend that could not be opened.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "services/agent/zone_wire.h"

namespace zonagent {

// Why the agent cannot start, or a zone file cannot be used. Caught in main and at reload.
class AgentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Verdict { Found, NotFound, Unavailable };

struct Answer {
  Verdict verdict = Verdict::Unavailable;
  orvs::wire::Record record = {};  // when Found: a good name, and an id that is one
  std::string why = {};            // when Unavailable: one of a few texts, without names
};

enum class Online { NotAsked, Yes, No };

struct OnlineAnswer {
  Online verdict = Online::NotAsked;
  std::string why = {};  // of a No
};

class ZoneBackend {
 public:
  ZoneBackend() = default;
  ZoneBackend(const ZoneBackend&) = delete;
  ZoneBackend& operator=(const ZoneBackend&) = delete;
  virtual ~ZoneBackend() = default;

  // REQUIRES: the question has either a name or an id. By id, a found record bears that id. Called
  // from several threads at once when mayBlock().
  virtual Answer find(const orvs::wire::Question& question) = 0;
  virtual bool mayBlock() const { return false; }

  // Forgets what it remembers and reads anew.
  virtual void reload() {}

  // For --check: the files behind it, one a line, and whether its directory can be reached.
  virtual std::string sources() const { return ""; }
  virtual OnlineAnswer online() { return {}; }

  // For the log: what is behind it, in a few words.
  virtual std::string summary() const { return ""; }
};

// In place of a backend that could not be opened: it cannot tell about anybody.
class ClosedBackend : public ZoneBackend {
 public:
  explicit ClosedBackend(std::string reason) : why(std::move(reason)) {}

  Answer find(const orvs::wire::Question& /*question*/) override {
    return {Verdict::Unavailable, {}, why};
  }
  std::string summary() const override { return why; }

 private:
  std::string why;
};

}  // namespace zonagent
