// The line at the foot of a terminal that tells how far a run is, and rewrites itself.
//
// It goes to standard error and takes one row of the terminal at most. Whoever prints anything else
// clears it first: issueMessage does. The line is there only between a draw and the next clear;
// clearing costs nothing while it is not. Failures to write are passed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct ProgressCounts {
  uint64_t seen = 0;
  uint64_t changed = 0;
  double seconds = 0;  // since the begin
};

// The text of the line, at most `columns` wide; a long directory loses its front. Control
// characters and what is no UTF-8 show as "?". Pure.
std::string progressText(const ProgressCounts& counts, std::string_view directory, size_t columns);

namespace progress_line {

inline bool isShown = false;

// Whether standard error is a terminal that can erase a line.
bool isPossible();

// The terminal's width less one, so that no row is ever full.
size_t columns();

// Not while this process is in the background of its terminal.
void draw(const std::string& text);
void erase();

inline void clear() {
  if (isShown)
    erase();
}

}  // namespace progress_line
