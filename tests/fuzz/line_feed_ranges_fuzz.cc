// Any bytes as the log's attribute: refused, or ranges that ascend and read the same when stored.
#include <sys/xattr.h>

#include "privatelog/line_feed_ranges.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using Range = LineFeedRanges::Range;
using Ranges = std::vector<Range>;

// Numbers of 128 bits have room for whatever may be wrong.
std::optional<Ranges> decodePlainly(const std::string& bytes) {
  std::vector<unsigned __int128> numbers;
  unsigned shift = 0;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (shift == 0)
      numbers.push_back(0);
    if (shift > 63)
      return std::nullopt;
    numbers.back() |= static_cast<unsigned __int128>(byte & 0x7f) << shift;
    shift = byte < 0x80 ? 0 : shift + 7;
  }
  if (shift != 0 || numbers.size() % 2 != 0)
    return std::nullopt;
  Ranges ranges;
  unsigned __int128 place = 0;
  for (size_t i = 0; i < numbers.size(); i += 2) {
    const unsigned __int128 begin = place + numbers[i];
    place = begin + numbers[i + 1];
    if (place > UINT64_MAX)
      return std::nullopt;
    ranges.push_back({static_cast<uint64_t>(begin), static_cast<uint64_t>(place)});
  }
  return ranges;
}

// Needs root, for the attribute's name.
void checkContains(const std::string& bytes, const Ranges& ranges) {
  static const InputFile file("");
  const int fd = file.descriptor();
  if (fsetxattr(fd, "trusted.idshift.lf", bytes.data(), bytes.size(), 0) != 0)
    return;
  LineFeedRanges loaded;
  require(loaded.load(fd), "the attribute is read");
  for (const Range& range : ranges) {
    for (const uint64_t offset : {range.begin - 1, range.begin, range.end - 1, range.end}) {
      bool isInside = false;
      for (const Range& other : ranges)
        isInside = isInside || (other.begin <= offset && offset < other.end);
      require(loaded.contains(offset) == isInside, "what is inside is found");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes = inputText(data, size);
  const auto ranges = LineFeedRanges::decode(bytes);
  require(ranges == decodePlainly(bytes), "both readings agree");
  if (!ranges)
    return 0;
  require(LineFeedRanges::decode(LineFeedRanges::encode(*ranges)) == ranges, "stored again");
  checkContains(bytes, *ranges);
  return 0;
}
