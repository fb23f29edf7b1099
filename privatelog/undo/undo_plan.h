// Decides what undo does with a line of the log, and with the file that it finds at a recorded
// path. Pure: no file is touched.
//
// A line of the newest section is backed out, only marked, or left as it is. Before an owner is
// restored the record is weighed: a user chose the path, and another file may be there now. Nobody
// may get a file that the recorded run did not take from him (SECURITY.md, "What an undo acts on").
#pragma once

#include <cstdint>
#include <string_view>

#include "entry/file_ids.h"
#include "privatelog/log_line.h"

enum class UndoStep : uint8_t {
  Pass,           // do nothing; the line stays
  MarkOnly,       // turn the line into a comment
  Restore,        // back the recorded change out
  RestoreIfDone,  // as Restore if the change was made although its record is unfinished
  PasswdBack,
  GroupBack,
};

UndoStep undoStep(LineType type);

// The ids of a record, and what other lines say about them.
struct RecordedIds {
  OwnerIds oldIds;
  OwnerIds newIds;
  // An old id of this record is a new id of another line, as in 1001 to 1002 and 1002 to 1003. So a
  // file with the old id may be one that was converted to it.
  bool isChained = false;
  // A new id of this record is an old id in some line, so a file with it may be somebody's own.
  bool mayBeOwn = false;
};

struct FoundAtPath {
  OwnerIds owner;
  bool isRecorded = false;  // it is the file of the record, by file system, inode and birth time
  bool hasForeignLink = false;  // a foreign link is on the way (pinned_path.h)
  bool hasOneName = false;      // it has one hard link, or is a directory
};

enum class Deal : uint8_t {
  Restore,         // set the old ids and keep the special bits that it has now
  RestoreWithout,  // set the old ids without special bits
  IsBack,          // it has the old ids already
  Leave,           // it is not the file that was changed
};

Deal dealWith(const RecordedIds& ids, const FoundAtPath& found);

// Whether only root can cause this errno. Such an obstacle may pass, and the line waits for that;
// an obstacle that a user can make must not hold an undo up.
bool isRootsObstacle(int error);

// The part of `path` in front of its last slash. Without a slash, and in a path shorter than two
// characters, it is the whole path. An entry directly below "/" has an empty directory part.
// Required: nobody can change into that, so such an entry gets the warning and is not restored.
std::string_view directoryPart(std::string_view path);
