// Whether the directory behind an NSS module can be reached, as a command of the administrator
// tells: exit status 0 is yes, all else no.
//
// The command is run without a shell; its words are separated by blanks, the first is looked up in
// PATH. It is killed after 4 s, which is a no. The verdict is remembered for 3 s. Safe to ask from
// several threads; one of them runs the command and the others wait for it.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "zonagent/backend.h"

namespace zonagent {

class OnlineCheck {
 public:
  // An empty command: nothing is ever asked.
  explicit OnlineCheck(const std::string& command);

  Online ask();
  void forget();

 private:
  std::vector<std::string> words;
  std::mutex mutex;  // guards the two below, and is held while the command runs
  Online verdict = Online::NotAsked;
  std::chrono::steady_clock::time_point validUntil;
};

}  // namespace zonagent
