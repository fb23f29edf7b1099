// Any bytes as the attribute of a log of an older release: refused, or read as ranges that ascend
// and contain the offsets inside them.
#include <sys/xattr.h>

#include <algorithm>

#include "privatelog/line_feed_ranges.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using Ranges = std::vector<LineFeedRanges::Range>;

// Needs root, because only root may set an attribute with this name.
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
  checkContains(bytes, *ranges);
}
