#include "privatelog/line_feed_ranges.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

namespace {

constexpr const char* kAttribute = "trusted.idshift.lf";

std::optional<uint64_t> takeVarint(std::string_view& bytes) {
  uint64_t number = 0;
  for (unsigned shift = 0; shift < 64 && !bytes.empty(); shift += 7) {
    const auto group = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    if (shift == 63 && group > 1)
      break;  // more than 64 bits
    number |= uint64_t{group & 0x7fu} << shift;
    if (group < 0x80)
      return number;
  }
  return std::nullopt;
}

}  // namespace

bool LineFeedRanges::load(int fd) {
  ranges.clear();
  std::string bytes(size_t{64} << 10, '\0');  // the kernel's own limit of a value
  const ssize_t size = fgetxattr(fd, kAttribute, bytes.data(), bytes.size());
  if (size < 0)
    return errno == ENODATA || errno == EOPNOTSUPP;
  auto decoded = decode(std::string_view(bytes).substr(0, static_cast<size_t>(size)));
  if (!decoded) {
    errno = EBADMSG;
    return false;
  }
  ranges = std::move(*decoded);
  return true;
}

bool LineFeedRanges::contains(uint64_t offset) const {
  const auto behind =
      std::upper_bound(ranges.begin(), ranges.end(), offset,
                       [](uint64_t at, const Range& range) { return at < range.end; });
  return behind != ranges.end() && behind->begin <= offset;
}

std::optional<std::vector<LineFeedRanges::Range>> LineFeedRanges::decode(std::string_view bytes) {
  std::vector<Range> ranges;
  uint64_t before = 0;
  while (!bytes.empty()) {
    const auto distance = takeVarint(bytes);
    const auto length = takeVarint(bytes);
    Range range{};
    if (!distance || !length || __builtin_add_overflow(before, *distance, &range.begin) ||
        __builtin_add_overflow(range.begin, *length, &range.end))
      return std::nullopt;
    ranges.push_back(range);
    before = range.end;
  }
  return ranges;
}

void LineFeedRanges::forget(int fd) {
  fremovexattr(fd, kAttribute);  // a failure is no harm: the log mostly has none
}
