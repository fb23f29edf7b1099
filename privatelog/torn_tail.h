// What to do about the last line that a killed run left without its line feed, before anything is
// appended behind it. The decisions alone; no file is touched here.
//
// A start of a record is written before its change, so a torn start may stand for a change that was
// made and that nothing else tells of. If the change was made, the record is completed; if not, it
// is ended as failed. A tail that would read as something else with the next date joined to it is
// ended or commented out. Everything else stays, and the date follows directly.
#pragma once

#include <optional>
#include <string_view>

#include "entry/file_ids.h"
#include "privatelog/log_line.h"

struct TornChange {
  PrivateLogRecord record;  // without new ids; its path points into the tail
  bool followed = false;
};

// The tail as the start of a change, or nothing when it is anything but a whole one.
std::optional<TornChange> parseTornChange(std::string_view tail);

// What the torn record's path leads to now.
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
  bool insideLineFeedPath = false;  // it is a piece of a path that holds a line feed
  bool atPageEnd = false;  // a killed write() may have ended here, in the midst of a number
};

// `onDisk` is asked for torn changes alone; nothing when the path does not resolve.
TailVerdict judgeTornTail(std::string_view tail,
                          const std::optional<EntryOnDisk>& onDisk,
                          TailPlace place);
