// Finds the lines of a log that was edited by hand again, for the records of its index.
//
// A line has moved when lines in front of it were added or taken away; it is gone, or another one,
// when its record fits nowhere. Lines and records keep their order, so what is looked for is the
// longest row of pairs, each a record and a line that it vouches for, in which both go forward.
// Lines are looked for at line starts, and right behind a start that was left open; never inside a
// name that belongs to another record. Pure.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "privatelog/index_record.h"

inline constexpr uint64_t kNoLine = std::numeric_limits<uint64_t>::max();

// For each record the offset of its line in `text`, or kNoLine; also for records that vouch for no
// line. `text` begins at a line start.
std::vector<uint64_t> alignRecords(std::span<const IndexBytes> records,
                                   uint64_t seed,
                                   std::string_view text);
