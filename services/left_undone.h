// Whether a run has left undone something that it was asked to do: an entry, a directory that could
// not be read, an account, a line of an undo. Whoever reports such a failure calls note(). The end
// of the run asks any().
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
