// Whether the directory behind an NSS module can be reached, as a command of the administrator
// tells: exit status 0 is yes, all else no.
//
// The command is run without a shell; its words are separated by blanks, the first is looked up in
// PATH. It has a process group of its own, which is killed after 4 s, and that is a no. Safe to ask
// from several threads; one of them runs the command and the others wait for it.
//
// A no is remembered for 3 s. A yes counts only for those who asked before its command began: the
// directory may have been lost since, and what a module did not find after that is not absent. In
// front of SSSD a remembered yes let hundreds of accounts pass for absent within its 3 s.
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
  std::mutex mutex;  // guards all below, and is held while the command runs
  Online verdict = Online::NotAsked;
  std::chrono::steady_clock::time_point began, ended;  // the command of that verdict
};

}  // namespace zonagent
