// What undo does with a line of the log: the decisions alone, no file is touched.
//
// A line of the newest section is backed out, or only marked, or left as it is. Before an owner is
// set back the record is weighed: its path comes out of a file that holds, byte for byte, names
// that any user could choose, and what stands at the path may have been exchanged since the change
// was made.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "entry/file_ids.h"
#include "privatelog/log_line.h"

enum class UndoStep : uint8_t {
  Pass,            // nothing is done, the line stays
  MarkOnly,        // the line is turned into a comment
  Restore,         // lchown
  RestoreThrough,  // chown, through the link at the path
  RestoreIfDone,   // as Restore when the change went through although its record was not finished
  PasswdBack,
  GroupBack,
};

UndoStep undoStep(LineType type);

enum class Credit : uint8_t {
  Full,         // the record may be acted on
  IfRootAlone,  // only when nobody but root can have changed the way to the file
  None,
};

// Whether the line can be the record that the tool wrote. Full or None.
//   insideName: it begins inside a remembered start of a record (line_feed_ranges.h)
// A line with more than seven fields has a colon in its path, and is split at the wrong places.
Credit creditOfLine(const PrivateLogRecord& record, bool insideName);

// Whether what stands at the path is what the record tells of. The ids that the change gave count
// only when the line holds them.
Credit creditOfEntry(const PrivateLogRecord& record,
                     bool newIdsKnown,
                     DevInode found,
                     OwnerIds foundOwner);

// The part of `path` in front of its last slash. Without a slash, and in a path shorter than two
// characters, it is the whole path. An entry directly below "/" has an empty directory part.
// Required: nobody can change into that, so such an entry gets the warning and is not restored.
std::string_view directoryPart(std::string_view path);
