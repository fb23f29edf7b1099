// The online check: a command of the administrator that tells whether the directory behind an NSS
// module can be reached. Exit status 0 means yes, everything else no.
//
// The command runs without a shell. Its words are separated by blanks; the first is looked up in
// PATH. The command has a process group of its own, which is killed after 4 s; a killed command
// means no. Several threads may ask: one runs the command while the others wait for its result.
//
// A no is remembered for 3 s. A yes confirms every answer that the module gave before the command
// began; the directory may have been lost since. So a "not found" that came later needs a new run
// of the command: with SSSD, a yes that was remembered for 3 s let hundreds of accounts pass for
// absent. A record that came later may be confirmed by the former yes for some seconds, counted
// from the start of its command. These seconds are the window; it may be 0.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "zonagent/backend.h"

namespace zonagent {

// The kind of answer that the check is to confirm: a record, or "not found".
enum class Evidence { Record, Absence };

struct CheckResult {
  using Time = std::chrono::steady_clock::time_point;
  OnlineAnswer answer;
  Time began = {}, ended = {};  // when the command did
};

// What the last result says about an answer that the module gave at `came`; the time is `now`.
// NotAsked: the last result does not apply, and the command must be run.
Online speaksFor(const CheckResult& last,
                 Evidence evidence,
                 CheckResult::Time came,
                 CheckResult::Time now,
                 std::chrono::seconds window);

class OnlineCheck {
 public:
  // With an empty command ask() always returns NotAsked.
  OnlineCheck(const std::string& command, std::chrono::seconds window);

  // For an answer that the module has just given.
  OnlineAnswer ask(Evidence evidence);
  void forget();

  std::string summary() const;

 private:
  std::vector<std::string> words;
  std::chrono::seconds recordWindow;
  std::mutex mutex;  // guards `last`, and is held while the command runs
  CheckResult last;
};

}  // namespace zonagent
