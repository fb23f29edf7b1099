// Parses and formats the lines of the private log. Pure: no file is touched.
//
// FORMAT.md has the grammar. Lines are parsed without their line feed. Views in a result point into
// the parsed line and are valid as long as that line. Malformed text is never an error: it becomes
// LineType::Ignored, or whatever its first fields say.
//
// Formatters append to a string that the caller reuses, so formatting allocates nothing. Numbers
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
  IncompleteChange = 5,  // six fields: the new ids are not complete
  PasswdUpdate = 6,
  GroupUpdate = 7,
};

// One change of one file, as in a line of the log.
struct PrivateLogRecord {
  DevInode id;
  OwnerIds oldIds;
  OwnerIds newIds;
  std::string_view path;          // absolute, as the walk built it; a view of the line
  bool hasSurplusFields = false;  // the line has more than 7 fields
};

// Clears `record`, then fills in the fields that the line has.
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

// The number that strtol() reads in base 10: after white space and a sign, as many digits as there
// are; 0 when there are none; the nearest long when the number does not fit one.
long parseLogNumber(std::string_view field);

inline constexpr char kUndoneMark = '#';
// The longest end of a change: two ids of ten digits, their colons and the line feed.
inline constexpr size_t kMaxChangeEnd = 23;

void appendHeaderLine(std::string& out, std::string_view domain);
void appendDateLine(std::string& out, std::string_view dateText);
// Appends the start of a change; appendChangeEnd() or a line feed completes the line.
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
