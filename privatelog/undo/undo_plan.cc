#include "privatelog/undo/undo_plan.h"

#include <algorithm>
#include <array>
#include <cerrno>

UndoStep undoStep(LineType type) {
  switch (type) {
    case LineType::Ignored:
    case LineType::Date:
      return UndoStep::Pass;
    case LineType::Link:  // its inode is restored through the line of the change
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

Deal dealWith(const RecordedIds& ids, const FoundAtPath& found) {
  if (found.owner == ids.oldIds && (found.isRecorded || !ids.isChained))
    return Deal::IsBack;
  if (found.isRecorded) {
    if (found.owner.uid != ids.newIds.uid)
      return Deal::Leave;
    return found.owner == ids.newIds ? Deal::Restore : Deal::RestoreWithout;
  }
  // Another file at the path: an editor's save, a backup that was played back.
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
