// Any bytes as the log's attribute: refused, or ranges that ascend, are stored as they were read
// and hold what lies inside.
#include <sys/xattr.h>

#include <algorithm>

#include "privatelog/line_feed_ranges.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using Ranges = std::vector<LineFeedRanges::Range>;

// A number may be read with more groups of bits than it is written with, of which the last is zero.
bool isLonger(const std::string& bytes) {
  return std::adjacent_find(bytes.begin(), bytes.end(), [](char group, char next) {
           return (group & 0x80) != 0 && next == 0;
         }) != bytes.end();
}

// Needs root, for the attribute's name.
void checkContains(const std::string& bytes, const Ranges& ranges) {
  static const InputFile file("");
  const int fd = file.descriptor();
  if (fsetxattr(fd, "trusted.idshift.lf", bytes.data(), bytes.size(), 0) != 0)
    return;
  LineFeedRanges loaded;
  require(loaded.load(fd), "the attribute is read");
  for (const auto& range : ranges) {
    for (const uint64_t offset : {range.begin - 1, range.begin, range.end - 1, range.end}) {
      const bool isInside = std::any_of(ranges.begin(), ranges.end(), [&](const auto& other) {
        return other.begin <= offset && offset < other.end;
      });
      require(loaded.contains(offset) == isInside, "what is inside is found");
    }
  }
}

}  // namespace

void tryInput(const std::string& bytes) {
  const auto ranges = LineFeedRanges::decode(bytes);
  if (!ranges)
    return;
  uint64_t place = 0;
  for (const auto& range : *ranges) {
    require(place <= range.begin && range.begin <= range.end, "ranges ascend");
    place = range.end;
  }
  require(isLonger(bytes) || LineFeedRanges::encode(*ranges) == bytes, "stored as they were read");
  checkContains(bytes, *ranges);
}
