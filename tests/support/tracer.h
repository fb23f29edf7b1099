// Runs a program under ptrace and lets the test decide at every system call what becomes of it.
//
// The hook is called before each system call of the program itself (its children run free) with the
// running number of the call, from 1, and answers: let it happen, kill the process before or right
// after it, or let it fail with an errno without being made. The hook may also change the world at
// that very moment, which makes a race deterministic.
//
// x86-64 alone: failing a call needs the machine's registers.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/child.h"

struct SystemCall {
  uint64_t index = 0;  // 1 for the first call after the exec
  long number = -1;    // __NR_...
  std::array<uint64_t, 6> arguments{};
  int pid = -1;

  // The string that argument `which` points to, over there; empty when it cannot be read.
  std::string text(size_t which) const;
  // What descriptor argument `which` refers to, as /proc shows it.
  std::string descriptorPath(size_t which) const;
};

struct CallVerdict {
  enum Kind { kContinue, kKill, kKillAfter, kFail } kind = kContinue;
  int error = 0;  // errno of a failed call
};

using CallHook = std::function<CallVerdict(const SystemCall&)>;

struct TracedResult : RunResult {
  uint64_t calls = 0;  // system calls seen
};

TracedResult runTraced(const std::vector<std::string>& argv, const CallHook& hook);

// A hook that asks `then` at the `nth` of the calls that `matters` picks, once.
using CallFilter = std::function<bool(const SystemCall&)>;
CallHook atCall(const CallFilter& matters, uint64_t nth, const CallHook& then);
