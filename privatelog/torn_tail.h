// Decides what to do about a last line that a killed run left without line feed, before anything is
// appended. Pure: no file is touched.
//
// A start is written before its change, so a torn start may belong to a change that was made. If it
// was made the record is completed; if not, it is ended as failed. A tail that would become another
// kind of line with the next date joined to it is ended or commented out. Any other tail stays, and
// the date follows on its line.
#pragma once

#include <optional>
#include <string_view>

#include "entry/file_ids.h"
#include "privatelog/log_line.h"

struct TornChange {
  PrivateLogRecord record;  // without new ids; its path points into the tail
  bool followed = false;
};

// Parses the tail as the start of a change. Nothing when it is not a complete start.
std::optional<TornChange> parseTornChange(std::string_view tail);

// The entry to which the path of the torn record leads now.
struct EntryOnDisk {
  DevInode id;
  OwnerIds ids;
};

enum class TailVerdict {
  Leave,
  EndLine,         // append a line feed
  CommentOut,      // overwrite the first byte with the mark and append a line feed
  CompleteChange,  // append the end of a change with the ids found on the disk
};

struct TailPlace {
  bool insideLineFeedPath = false;  // the tail is a piece of a path with a line feed
  bool atPageEnd = false;           // a killed write() may have ended here, inside a number
};

// `onDisk` matters for torn changes alone; empty when the path does not resolve.
TailVerdict judgeTornTail(std::string_view tail,
                          const std::optional<EntryOnDisk>& onDisk,
                          TailPlace place);
