#include "privatelog/log_recovery.h"

#include <unistd.h>

#include "privatelog/prepared_account.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/torn_tail.h"

namespace {

std::optional<EntryOnDisk> findEntry(const TornChange& torn) {
  EntryStatus status;
  if (!torn.record.path.starts_with('/') ||
      !findStatus(std::string(torn.record.path), torn.followed, status))
    return std::nullopt;
  return EntryOnDisk{status.id, status.owner};
}

}  // namespace

bool LogRecovery::run(bool isPath) {
  return (isPath || completePrepared()) && file.setEnd(end.contentEnd) && mendTornTail();
}

// What stands behind the NUL that ends the content; longer than any account record.
std::string LogRecovery::readPrepared() const {
  std::string text(4096, '\0');
  const ssize_t length =
      pread(file.descriptor(), text.data(), text.size(), static_cast<off_t>(end.contentEnd + 1));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

// One byte makes the record good where it stands, so that a kill here loses nothing either. Behind
// a record that was left open it would be no line of its own.
bool LogRecovery::completePrepared() {
  const auto prepared = parsePreparedAccount(readPrepared());
  if (!prepared || !end.tail.empty() || !isAccountUpdated(prepared->line))
    return true;
  if (!file.overwrite(end.contentEnd, prepared->text.front()))
    return false;
  end.contentEnd += prepared->text.size();
  if (prepared->text.starts_with('!'))  // a section of its own, which is the newest now
    dateLine = prepared->text.substr(0, prepared->text.find('\n'));
  return true;
}

bool LogRecovery::mendTornTail() {
  const auto torn = parseTornChange(end.tail);
  const auto onDisk = torn ? findEntry(*torn) : std::nullopt;
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const TailPlace place = {ranges != nullptr && ranges->contains(end.tailOffset),
                           end.contentEnd % pageSize == 0};
  switch (judgeTornTail(end.tail, onDisk, place)) {
    case TailVerdict::Leave:
      return true;
    case TailVerdict::EndLine:
      return file.append("\n");
    case TailVerdict::CommentOut:
      return file.overwrite(end.tailOffset, kUndoneMark) && file.append("\n");
    case TailVerdict::CompleteChange:
      break;
  }
  completed = torn->record;
  completed->newIds = onDisk->ids;
  std::string text;
  appendChangeEnd(text, completed->newIds);
  return file.append(text);
}
