// The line at the foot of a terminal that shows how far a run is, and rewrites itself.
//
// The line goes to standard error and takes at most one row. Whoever prints anything else calls
// clear() first, as issueMessage does. clear() costs nothing while no line is shown. Errors of
// writing are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct ProgressCounts {
  uint64_t seen = 0;
  uint64_t changed = 0;
  double seconds = 0;  // since the walks began
};

// The text of the line, at most `columns` wide. A long directory loses its front. Control
// characters and bytes that are not UTF-8 show as "?". Pure.
std::string progressText(const ProgressCounts& counts, std::string_view directory, size_t columns);

namespace progress_line {

inline bool isShown = false;

// Whether standard error is a terminal that can erase a line.
bool isPossible();

// The terminal's width less one, so that no row is ever full.
size_t columns();

// Shows `text` as the line. Does nothing while this process is in the background of its terminal.
void draw(const std::string& text);
void erase();

inline void clear() {
  if (isShown)
    erase();
}

}  // namespace progress_line
