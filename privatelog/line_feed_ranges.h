// Where in a log of an older release paths stand that could read like other lines.
//
// Releases before the index wrote the place of each path with a line feed, and of each failed
// change with colons in its path, into the root-only extended attribute trusted.idshift.lf of the
// log. Lines that begin inside such a range are not acted on. Nothing writes it any more.
//
// The attribute holds pairs of numbers in 7-bit groups, low group first: the distance from the end
// of the range before, and the length. Ranges ascend and do not overlap. Offsets are in bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

class LineFeedRanges {
 public:
  struct Range {
    uint64_t begin;
    uint64_t end;  // the first byte behind
    bool operator==(const Range&) const = default;
  };

  // Reads the attribute; a log without one has no ranges. False with errno when it cannot be read,
  // or (EBADMSG) not understood.
  bool load(int fd);

  bool contains(uint64_t offset) const;

  // Takes the attribute away from a log that begins anew.
  static void forget(int fd);

  // Nothing when the bytes make no sense.
  static std::optional<std::vector<Range>> decode(std::string_view bytes);

 private:
  std::vector<Range> ranges;
};
