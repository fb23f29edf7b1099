// The places of paths in a log of an older release that could be read as other lines.
//
// Releases before the index wrote these places into trusted.idshift.lf, an extended attribute of
// the log that root alone can set: of each path with a line feed, and of each failed change with
// colons in its path. Lines that begin inside such a range are not acted on. No code writes the
// attribute any more.
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
    uint64_t end;  // the first byte behind the range
    bool operator==(const Range&) const = default;
  };

  // Reads the attribute; a log without it has no ranges. False with errno when the attribute cannot
  // be read; EBADMSG when it is malformed.
  bool load(int fd);

  bool contains(uint64_t offset) const;

  // Removes the attribute from a log that begins anew.
  static void forget(int fd);

  // Nothing when the bytes are malformed.
  static std::optional<std::vector<Range>> decode(std::string_view bytes);

 private:
  std::vector<Range> ranges;
};
