// Whether a run left something undone that it was asked for: an entry, a directory that could not
// be read, an account, a line of an undo. Noted where it is reported; asked at the end of a run.
#pragma once

#include <cstdint>

namespace left_undone {

inline uint64_t noted = 0;

inline void note() {
  ++noted;
}
inline bool any() {
  return noted != 0;
}

}  // namespace left_undone
