// Whether the directory behind an NSS module can be reached, as a command of the administrator
// tells: exit status 0 is yes, all else no.
//
// The command is run without a shell; its words are separated by blanks, the first is looked up in
// PATH. It has a process group of its own, which is killed after 4 s, and that is a no. Safe to ask
// from several threads; one of them runs the command and the others wait for it.
//
// A no is remembered for 3 s. A yes counts for every answer that came before its command began: the
// directory may have been lost since. What a module did not find after that is not absent; in front
// of SSSD a remembered yes let hundreds of accounts pass for absent within 3 s. For records, which
// a module may hold in its cache and change when its directory is gone, a yes counts for a window
// of seconds that begins with its command; the window may be empty.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "zonagent/backend.h"

namespace zonagent {

// What the module said, and is to be believed.
enum class Evidence { Record, Absence };

struct CheckResult {
  using Time = std::chrono::steady_clock::time_point;
  OnlineAnswer answer;
  Time began = {}, ended = {};  // of the command
};

// What `last` says about an answer of the module that came at `came`, now that it is `now`.
// NotAsked when it says nothing, so that the command must be run.
Online speaksFor(const CheckResult& last,
                 Evidence evidence,
                 CheckResult::Time came,
                 CheckResult::Time now,
                 std::chrono::seconds window);

class OnlineCheck {
 public:
  // An empty command: nothing is ever asked.
  OnlineCheck(const std::string& command, std::chrono::seconds window);

  // For an answer that has come just now.
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
