// Recovery. A run can be killed at any instant, so the log may end in the start of a change of
// which nobody knows whether the change was made. A guess does not do. If a change that was made is
// taken for not made, the next commit may convert the file twice, and no undo restores it. In the
// opposite case the file is never converted.
//
// So the disk decides. The record of a start is in the file before its change, and the start names
// an inode and its old ids. If the path still leads to that inode and the ids are the old ones, the
// change was not made, and the line is ended as a failed change. If the ids are others, the change
// was made, and the line is completed with the ids found. If the path leads elsewhere nobody can
// tell; then the start stays open, and later commits count the change as made.
//
// The order of the steps matters. The end of the content is cut to what the index vouches for
// before anything is appended. Cut capabilities are judged before modes are put back, because a
// chmod moves the ctime by which they are judged.

#include "privatelog/log_recovery.h"

#include <unistd.h>

#include "entry/pinned_path.h"
#include "privatelog/prepared_account.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/torn_tail.h"

namespace {

constexpr int64_t kNanoseconds = 1'000'000'000;

std::optional<EntryStatus> findEntry(const PrivateLogRecord& record, bool followed) {
  EntryStatus status;
  if (!record.path.starts_with('/') || !findStatus(std::string(record.path), followed, status))
    return std::nullopt;
  return status;
}

std::string_view asText(const char& byte) {
  return {&byte, 1};
}

// The bytes behind the NUL that ends the content: more than an account's record has.
std::string readPrepared(const LogFile& log, uint64_t contentEnd) {
  std::string text(4096, '\0');
  const ssize_t length =
      pread(log.descriptor(), text.data(), text.size(), static_cast<off_t>(contentEnd + 1));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

bool complete(LogFile& log, PrivateLogRecord& record, OwnerIds newIds) {
  record.newIds = newIds;
  std::string end;
  appendChangeEnd(end, newIds);
  return log.append(end);
}

// Mends the start of a change without an end, by the record that vouches for it.
bool mendVouchedStart(LogFile& log,
                      LogIndex& index,
                      const LogScan& scan,
                      std::optional<PrivateLogRecord>& completed) {
  const Vouched& vouched = *scan.end().tailRecord;
  const auto start = parseVouchedStart(vouched.line, scan.indexReader().seed(), scan.end().tail);
  if (!start)
    return true;
  const bool followed = vouched.line.kind == IndexKind::Followed;
  const auto found = findEntry(start->record, followed);
  const bool isRecorded = found && found->id.inode == start->record.id.inode &&
                          (vouched.line.birth == 0 ? found->id.device == start->record.id.device
                                                   : found->birth == vouched.line.birth);
  if (!isRecorded)
    return true;  // unknown whether it was made; the next date follows on the line
  if (found->owner == start->record.oldIds)
    return index.flag(vouched.position, vouched.line.flags | kLineFailed) && log.append("\n");
  if ((vouched.line.flags & kLineHoldsMode) != 0)
    mendHeldMode({std::string(start->record.path), followed, vouched, start->record});
  completed = start->record;
  return complete(log, *completed, found->owner);
}

}  // namespace

// Setting one byte completes the record in place, so a kill at this point loses nothing. Two cases
// are left alone. Behind a tail the record would not be a line of its own. Where the index goes on
// with a file's record, the text behind the NUL is a piece of a name that only looks like an
// account's record.
bool completePreparedAccount(LogFile& log, const ScanEnd& end, bool isInsideName, bool& isDone) {
  isDone = false;
  const bool isName = isInsideName || end.nextKind == IndexKind::Change ||
                      end.nextKind == IndexKind::Followed || end.nextKind == IndexKind::Link;
  if (isName || !end.tail.empty())
    return true;
  const auto prepared = parsePreparedAccount(readPrepared(log, end.textEnd));
  if (!prepared || !isAccountUpdated(prepared->line))
    return true;
  isDone = log.overwrite(end.textEnd, asText(prepared->text.front()));
  return isDone;
}

bool mendTornTail(LogFile& log,
                  LogIndex& index,
                  const LogScan& scan,
                  std::optional<PrivateLogRecord>& completed) {
  const ScanEnd& end = scan.end();
  if (end.tailRecord) {
    const bool isStart = end.tailRecord->line.kind == IndexKind::Change ||
                         end.tailRecord->line.kind == IndexKind::Followed;
    return isStart && !end.hasTailEnd ? mendVouchedStart(log, index, scan, completed)
                                      : log.append("\n");
  }
  const auto torn = parseTornChange(end.tail);
  std::optional<EntryOnDisk> onDisk;
  if (const auto found = torn ? findEntry(torn->record, torn->followed) : std::nullopt)
    onDisk = EntryOnDisk{found->id, found->owner};
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const TailPlace place = {scan.isInsideName(end.tailOffset), end.contentEnd % pageSize == 0};
  switch (judgeTornTail(end.tail, onDisk, place)) {
    case TailVerdict::Leave:
      return true;
    case TailVerdict::EndLine:
      return log.append("\n");
    case TailVerdict::CommentOut:
      return log.overwrite(end.tailOffset, asText(kUndoneMark)) && log.append("\n");
    case TailVerdict::CompleteChange:
      break;
  }
  completed = torn->record;
  return complete(log, *completed, onDisk->ids);
}

void mendHeldMode(const HeldMode& held) {
  const IndexLine& line = held.vouched.line;
  PinnedPath found =
      pinPath(held.path, held.followed ? LastLink::Follow : LastLink::Keep, ForeignLinks::Follow);
  const bool isUndo = (line.flags & kLineRestoring) != 0;
  const OwnerIds changed = isUndo ? held.record.oldIds : line.newIds;
  const int64_t latest = (int64_t{line.modeTime} + 1) * kNanoseconds + kNanoseconds - 1;
  if (!found.object || line.birth == 0 || found.status.birth != line.birth ||
      found.status.id.inode != held.record.id.inode || found.status.owner != changed ||
      found.status.changed > latest)
    return;
  PinnedEntry entry;
  entry.adopt(std::move(found.object), found.status);
  entry.changeMode(line.mode);
}
