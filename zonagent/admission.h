// Whether one more connection is let in, and which one gives way for it: the decision alone.
//
// Connections are counted per user, so that nobody can take them all: one user may have 16, all
// besides root 128 together, root 64 of its own. Where a share is exhausted, its connection that
// has been idle for longest gives way; among all users, that of the user with the most idle ones.
// One that waits for its answer never does.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace zonagent {

struct Seat {
  uid_t uid = 0;
  bool idle = false;                              // waits for a request
  std::chrono::steady_clock::time_point since{};  // when idle
};

struct Admission {
  bool welcome = false;
  std::optional<size_t> givesWay = {};  // index of a seat
};

Admission admit(uid_t uid, const std::vector<Seat>& seats);

}  // namespace zonagent
