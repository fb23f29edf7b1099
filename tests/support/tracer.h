// Runs a program under ptrace and calls a hook of the test before each of its system calls.
//
// The hook is given the number of the call, counted from 1, and its arguments. The hook's verdict
// is one of four: make the call, kill the process before it, kill the process right after it, or
// let the call fail with an errno without making it. The hook may also change files at that moment,
// which makes a race deterministic. Children of the program are not traced. For x86-64 only,
// because a call is made to fail through the processor's registers.
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

  // The string that argument `which` points to in the traced process; empty if it cannot be read.
  std::string text(size_t which) const;
  // The path of the descriptor in argument `which`, as /proc shows it.
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

// A hook that calls `then` once: at the `nth` of the calls for which `matters` is true.
using CallFilter = std::function<bool(const SystemCall&)>;
CallHook atCall(const CallFilter& matters, uint64_t nth, const CallHook& then);
