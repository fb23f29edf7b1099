// How far a walk is: on a terminal as a line that rewrites itself, elsewhere when SIGUSR1 asks.
//
// The walk calls countEntry() for each entry and, when that says so, look(). Neither makes a system
// call unless there is something to print: the clock is read without one. The line first comes
// after two seconds and then twice a second; the setting idshift.progress and talkative runs keep
// it away. SIGUSR1 never ends the program and, where standard error is no terminal, prints the
// line once, as soon as there is a walk; a terminal has it anyway.
#pragma once

#include <cstdint>
#include <string>

namespace progress {

// Takes SIGUSR1 over, unless the parent had it ignored.
void install();

// The time between begin and end of a run's walks. The line is gone when it ends.
class Scope {
 public:
  // No line with `talkative`. Reads the settings.
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

// `directory` is the one that is walked just now.
void look(const std::string& directory, uint64_t changed);

}  // namespace progress
