#include "privatelog/undo/undo_plan.h"

#include <algorithm>
#include <array>
#include <cerrno>

UndoStep undoStep(LineType type) {
  switch (type) {
    case LineType::Ignored:
    case LineType::Date:
      return UndoStep::Pass;
    case LineType::Link:  // the line of the change restores the inode
      return UndoStep::MarkOnly;
    case LineType::Change:
    case LineType::FollowedChange:
      return UndoStep::Restore;
    case LineType::IncompleteChange:
      return UndoStep::RestoreIfDone;
    case LineType::PasswdUpdate:
      return UndoStep::PasswdBack;
    case LineType::GroupUpdate:
      return UndoStep::GroupBack;
  }
  return UndoStep::Pass;
}

// The decision. A recorded path proves nothing: a user may have put another file under the name, so
// that this file is given to him or to somebody else. The identity of the file is proof. Where the
// identity does not fit, the ids of the file are weighed.
//
// The recorded file is restored while it still has the record's new uid: with another one somebody
// has given it away since. Only when both ids are the new ones do the special bits stay, because
// another gid may be a user's own choice.
//
// A file with another identity is restored only when it can be nothing but a successor of the
// recorded one, such as an editor's new copy: it has both new ids, one name, no foreign link on the
// way, and those ids were nobody's before, so only a conversion can have brought them there.
//
// The old ids on a file mean that nothing is left to be done. In a chain (1001 to 1002, 1002 to
// 1003) that holds for the recorded file alone: another file with 1002 may have been converted to
// it.
Deal dealWith(const RecordedIds& ids, const FoundAtPath& found) {
  if (found.owner == ids.oldIds && (found.isRecorded || !ids.isChained))
    return Deal::IsBack;
  if (found.isRecorded) {
    if (found.owner.uid != ids.newIds.uid)
      return Deal::Leave;
    return found.owner == ids.newIds ? Deal::Restore : Deal::RestoreWithout;
  }
  // Another file at the path: an editor's new copy, or one from a backup.
  const bool isSuccessor =
      found.owner == ids.newIds && !found.hasForeignLink && found.hasOneName && !ids.mayBeOwn;
  return isSuccessor ? Deal::RestoreWithout : Deal::Leave;
}

bool isRootsObstacle(int error) {
  constexpr std::array kObstacles = {EROFS, EIO, ENOSPC, EDQUOT, EPERM, EMFILE, ENFILE, ENOMEM};
  return std::find(kObstacles.begin(), kObstacles.end(), error) != kObstacles.end();
}

std::string_view directoryPart(std::string_view path) {
  const size_t slash = path.rfind('/');
  return path.size() < 2 || slash == std::string_view::npos ? path : path.substr(0, slash);
}
