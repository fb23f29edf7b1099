// A backend: what the agent asks about the zone's accounts.
//
// ZoneFiles (zone_files.h) reads plain files and answers at once. NssModule (nss_module.h) asks a
// module of the host, which may block for minutes; worker threads call it. ClosedBackend stands in
// for a backend that could not be opened. A backend that cannot be opened throws AgentError. A
// lookup that fails later has the verdict Unavailable: the account is unknown, never absent.
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
  orvs::wire::Record record =
      {};                // when Found: the name is valid UTF-8, the ids are at most kMaxId
  std::string why = {};  // when Unavailable: one of a few reasons, without account names
};

enum class Online { NotAsked, Yes, No };

struct OnlineAnswer {
  Online verdict = Online::NotAsked;
  std::string why = {};  // when No
};

class ZoneBackend {
 public:
  ZoneBackend() = default;
  ZoneBackend(const ZoneBackend&) = delete;
  ZoneBackend& operator=(const ZoneBackend&) = delete;
  virtual ~ZoneBackend() = default;

  // REQUIRES: the question has either a name or an id. A record that is found by id has that id.
  // Several threads call find() at once when mayBlock().
  virtual Answer find(const orvs::wire::Question& question) = 0;
  virtual bool mayBlock() const { return false; }

  // Drops remembered verdicts and reads files again.
  virtual void reload() {}

  // For --check: one line for each file behind the backend, and whether the directory is reachable.
  virtual std::string sources() const { return ""; }
  virtual OnlineAnswer online() { return {}; }

  // For the log: the backend's contents in a few words.
  virtual std::string summary() const { return ""; }
};

// In place of a backend that could not be opened: every lookup is Unavailable.
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
