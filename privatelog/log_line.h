// The codec of the private log's lines: text in, values out, and back. No file is touched here.
//
// FORMAT.md, "Lines", gives the grammar. A line comes without its line feed. Views in the results
// point into the line that was parsed and live as long as it does. Malformed text is never an
// error: it is LineType::Ignored or whatever its first fields say.
//
// Formatters append to a string that the caller reuses, so a record costs no allocation. Numbers
// are unsigned decimals: device and inode 64-bit, ids 32-bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "entry/file_ids.h"

enum class LineType : uint8_t {
  Ignored = 0,  // comment, failed change, unreadable
  Date = 1,
  Link = 2,
  Change = 3,
  FollowedChange = 4,    // made through a symbolic link
  IncompleteChange = 5,  // six fields: the new ids were not recorded whole
  PasswdUpdate = 6,
  GroupUpdate = 7,
};

// One change of one file, as a line of the log tells it.
struct PrivateLogRecord {
  DevInode id;
  OwnerIds oldIds;
  OwnerIds newIds;
  std::string_view path;          // absolute, as the walk built it; a view of the line
  bool hasSurplusFields = false;  // something stands behind field 7
};

// Zeroes `record`, then fills in what the line holds.
LineType parseLogLine(std::string_view line, PrivateLogRecord& record);

struct PasswdUpdate {
  std::string_view name;
  OwnerIds oldIds;
  OwnerIds newIds;
};

struct GroupUpdate {
  std::string_view name;
  uint32_t oldGid = 0;
  uint32_t newGid = 0;
};

// Nothing when the line is of another kind or its last field is missing.
std::optional<PasswdUpdate> parsePasswdUpdateLine(std::string_view line);
std::optional<GroupUpdate> parseGroupUpdateLine(std::string_view line);

// The domain of a header line. Nothing when it is no header.
std::optional<std::string_view> parseHeaderLine(std::string_view line);

// A number as strtol reads it in base 10: leading white space and a sign are taken, it reads as far
// as it can, nothing readable is 0, and what is too large for a long is the nearest long.
long parseLogNumber(std::string_view field);

inline constexpr char kUndoneMark = '#';
// The longest end of a change: two ids of ten digits, their colons and the line feed.
inline constexpr size_t kMaxChangeEnd = 23;

void appendHeaderLine(std::string& out, std::string_view domain);
void appendDateLine(std::string& out, std::string_view dateText);
// A change without its end; appendChangeEnd, or a bare line feed, completes it.
void appendChangeStart(
    std::string& out, DevInode id, OwnerIds oldIds, std::string_view path, bool followed);
void appendChangeEnd(std::string& out, OwnerIds newIds);
void appendLinkLine(std::string& out, DevInode id, std::string_view path);
void appendPasswdUpdateLine(std::string& out,
                            std::string_view name,
                            OwnerIds oldIds,
                            OwnerIds newIds);
void appendGroupUpdateLine(std::string& out,
                           std::string_view name,
                           uint32_t oldGid,
                           uint32_t newGid);
