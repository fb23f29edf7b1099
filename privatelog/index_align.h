// Finds the lines of the index's records again in a log that was edited by hand.
//
// A line has moved when lines in front of it were added or removed. A line is gone when its record
// fits nowhere. The result is the longest sequence of pairs of a record and a line that fits it, in
// the order of both (index_align.cc). Lines are looked for at line starts and right behind a start
// that was left open, but never inside a name that belongs to another record. Pure.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "privatelog/index_record.h"

inline constexpr uint64_t kNoLine = std::numeric_limits<uint64_t>::max();

// For each record the offset of its line in `text`, or kNoLine; kNoLine also for records of kinds
// without a line. `text` begins at a line start.
std::vector<uint64_t> alignRecords(std::span<const IndexBytes> records,
                                   uint64_t seed,
                                   std::string_view text);
