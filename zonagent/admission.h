// Decides whether a new connection is let in, and which present one is closed for it. Pure.
//
// Connections are counted by user, so that no user can take them all: root may have 64, every other
// user 16, all other users together 128. When root or a user has reached the limit, their own
// connection that has been idle for longest is closed. When the limit of all users is reached, the
// user with the most idle connections loses the one that has been idle for longest. A connection
// that waits for an answer is never closed; without an idle one the new connection is turned away.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace zonagent {

struct Seat {
  uid_t uid = 0;
  bool idle = false;                              // no request is under way
  std::chrono::steady_clock::time_point since{};  // compared between idle seats: less, idle longer
};

struct Admission {
  bool welcome = false;
  std::optional<size_t> givesWay = {};  // the index of the seat to close
};

Admission admit(uid_t uid, const std::vector<Seat>& seats);

}  // namespace zonagent
