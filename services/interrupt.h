// Signals that end a run between two records instead of inside one.
//
// SIGINT, SIGTERM, SIGHUP and SIGPIPE set a flag that the long loops (builders, walk, undo, account
// update) test between two steps. The run then finishes as it would, prints its count line and dies
// of that signal. SIGXFSZ is ignored, so that a file size limit shows as a failed write. SIGCHLD is
// not, whatever the parent did, so that a child's exit status arrives.
#pragma once

#include <signal.h>

namespace interrupt {

inline volatile sig_atomic_t firstSignal = 0;

// Installs the handlers. System calls that wait are interrupted (no SA_RESTART).
void install();

// The first signal that arrived, or 0. Asked for every entry of a walk, and so in line.
inline int pending() {
  return firstSignal;
}

// Gives `signal` its default action again and sends it to this process. Does not return.
[[noreturn]] void dieOf(int signal);

}  // namespace interrupt
