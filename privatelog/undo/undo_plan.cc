#include "privatelog/undo/undo_plan.h"

UndoStep undoStep(LineType type) {
  switch (type) {
    case LineType::Ignored:
    case LineType::Date:
      return UndoStep::Pass;
    case LineType::Link:  // its inode is restored through the line of the change
      return UndoStep::MarkOnly;
    case LineType::Change:
      return UndoStep::Restore;
    case LineType::FollowedChange:
      return UndoStep::RestoreThrough;
    case LineType::IncompleteChange:
      return UndoStep::RestoreIfDone;
    case LineType::PasswdUpdate:
      return UndoStep::PasswdBack;
    case LineType::GroupUpdate:
      return UndoStep::GroupBack;
  }
  return UndoStep::Pass;
}

Credit creditOfLine(const PrivateLogRecord& record, bool insideName) {
  return insideName || record.hasSurplusFields ? Credit::None : Credit::Full;
}

Credit creditOfEntry(const PrivateLogRecord& record,
                     bool newIdsKnown,
                     DevInode found,
                     OwnerIds foundOwner) {
  if (found == record.id || (newIdsKnown && foundOwner == record.newIds))
    return Credit::Full;
  return Credit::IfRootAlone;
}

std::string_view directoryPart(std::string_view path) {
  const size_t slash = path.rfind('/');
  return path.size() < 2 || slash == std::string_view::npos ? path : path.substr(0, slash);
}
