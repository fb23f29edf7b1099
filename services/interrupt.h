// Signals that end a run between two records instead of inside one.
//
// SIGINT, SIGTERM, SIGHUP and SIGPIPE set a flag. The long loops (map builders, walk, survey, undo,
// account update) test the flag between two steps and leave. The run then prints its count line as
// usual and dies of that signal. SIGXFSZ is ignored, so that a file size limit shows as a failed
// write. SIGCHLD gets its default action, because a parent may have ignored it, and then no exit
// status of a child would arrive.
#pragma once

#include <signal.h>

namespace interrupt {

inline volatile sig_atomic_t firstSignal = 0;

// Installs the handlers. They interrupt system calls that wait (no SA_RESTART).
void install();

// The first signal that arrived, or 0. In line, because a walk asks this for every entry.
inline int pending() {
  return firstSignal;
}

// Gives `signal` its default action again and sends it to this process. Does not return.
[[noreturn]] void dieOf(int signal);

}  // namespace interrupt
