// Where in the log paths stand that could read like other lines.
//
// A path that holds a line feed is written as it is, so its owner can make it read like other
// lines. The place of each such start of a record is therefore kept beside the format, in the
// root-only extended attribute trusted.idshift.lf of the log, set before the bytes are written.
// A failed change whose path holds colons has the fields of a finished one; its start is kept too,
// before its line is ended. Lines that begin inside such a range are not acted on.
//
// The attribute holds pairs of numbers in 7-bit groups, low group first: the distance from the end
// of the range before, and the length. Ranges ascend and do not overlap. Offsets are in bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
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

  // Remembers one more range behind all others and stores the attribute. A range that touches the
  // last one extends it. False with errno, and nothing has changed.
  bool add(int fd, uint64_t offset, uint64_t length);

  // Forgets what lies at or behind `end`, where the content of the file ends. False with errno.
  bool trim(int fd, uint64_t end);

  // Forgets everything, whatever the attribute holds. False with errno.
  bool clear(int fd) { return store(fd, {}); }

  bool contains(uint64_t offset) const;

  static std::string encode(const std::vector<Range>& ranges);
  // Nothing when the bytes make no sense.
  static std::optional<std::vector<Range>> decode(std::string_view bytes);

 private:
  bool store(int fd, std::vector<Range> changed);

  std::vector<Range> ranges;
};
