// What undo does with a line of the log, and with what it finds at a recorded path: the decisions
// alone, no file is touched.
//
// A line of the newest section is backed out, or only marked, or left as it is. Before an owner is
// set back the record is weighed: its path is bytes that a user chose, and what stands there may
// have been exchanged since. Nobody must be given anything that the recorded run had not taken from
// him (SECURITY.md, "What an undo acts on").
#pragma once

#include <cstdint>
#include <string_view>

#include "entry/file_ids.h"
#include "privatelog/log_line.h"

enum class UndoStep : uint8_t {
  Pass,           // nothing is done, the line stays
  MarkOnly,       // the line is turned into a comment
  Restore,        // the recorded change
  RestoreIfDone,  // as Restore when the change went through although its record was not finished
  PasswdBack,
  GroupBack,
};

UndoStep undoStep(LineType type);

// What is known about the ids of a record.
struct RecordedIds {
  OwnerIds oldIds;
  OwnerIds newIds;
  // An id that the change took away is an id that another line gives: 1001 to 1002, 1002 to 1003.
  bool isChained = false;
  // An id that the change gave is an old id in some line of the log, so it may be somebody's own.
  bool mayBeOwn = false;
};

struct FoundAtPath {
  OwnerIds owner;
  bool isRecorded = false;      // the file of the record: file system, inode and birth time
  bool hasForeignLink = false;  // somebody besides root can have put a link on the way
  bool hasOneName = false;      // or it is a directory
};

enum class Deal : uint8_t {
  Restore,         // set the old ids; special bits that stand on it now go back
  RestoreWithout,  // set the old ids, no bits
  IsBack,          // nothing is left to be done
  Leave,           // it is not what the change was made to
};

Deal dealWith(const RecordedIds& ids, const FoundAtPath& found);

// What may stand in the way of a restore. An obstacle that root alone can make passes, and the line
// waits for that; one that a user can make must not hold an undo up.
bool isRootsObstacle(int error);

// The part of `path` in front of its last slash. Without a slash, and in a path shorter than two
// characters, it is the whole path. An entry directly below "/" has an empty directory part.
// Required: nobody can change into that, so such an entry gets the warning and is not restored.
std::string_view directoryPart(std::string_view path);
