// How far a walk is: on a terminal as a line that rewrites itself, elsewhere when SIGUSR1 asks.
//
// The walk calls countEntry() for each entry. When that returns true, the walk calls look().
// Neither makes a system call unless there is something to print, because the coarse clock can be
// read without one. The line appears after two seconds and is drawn twice a second from then on.
//
// SIGUSR1 never ends the program. Where standard error is no terminal, the walk answers the signal
// with one such line; a request that comes before the walk is answered at its start. With
// idshift.progress = never, and in a run that lists files (--verbose, --debug), there is neither
// line nor answer.
#pragma once

#include <cstdint>
#include <string>

namespace progress {

// Handles SIGUSR1, unless the parent ignored it.
void install();

// Lives as long as the walks of a run. The destructor erases the line.
class Scope {
 public:
  // Reads the settings. `talkative`: the run lists files.
  explicit Scope(bool talkative);
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};

inline uint64_t entriesSeen = 0;

// True once in 64 entries.
inline bool countEntry() {
  return (++entriesSeen & 63) == 0;
}

// `directory` is the one that is being walked.
void look(const std::string& directory, uint64_t changed);

}  // namespace progress
