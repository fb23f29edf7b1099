// The parts of the agent's answers that this tool reads. Ids are unsigned 32-bit.
#pragma once

#include <cstdint>
#include <string>

namespace orvs {

struct ZoneUser {
  uint32_t uid = 0;
  std::string unixName;  // the login name in the zone
  uint32_t gid = 0;      // the primary gid
};

struct ZoneGroup {
  uint32_t gid = 0;
  std::string name;
};

// Lookup flags, combined with bitwise or. With UNIX_ONLY an account without a numeric id counts as
// not found. GROUP_MEMBERSHIP changes nothing, because no member list is read.
inline constexpr int UNIX_ONLY = 1;
inline constexpr int GROUP_MEMBERSHIP = 2;

}  // namespace orvs
