// The kernel's boot id: within one boot a device number keeps its meaning.
#pragma once

#include <array>

using BootId = std::array<char, 16>;

// All zeros when the boot id cannot be read; zeros equal no boot.
BootId currentBootId();

inline bool isSameBoot(const BootId& a, const BootId& b) {
  return a == b && a != BootId{};
}
