// Which start of the machine this is: device numbers mean the same within one.
#pragma once

#include <array>

using BootId = std::array<char, 16>;

// The kernel's boot id. All zeros when it cannot be read, which equals no start.
BootId currentBootId();

inline bool isSameBoot(const BootId& a, const BootId& b) {
  return a == b && a != BootId{};
}
