#include "privatelog/torn_tail.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::ptrdiff_t kColonsOfAStart = 4;

// Whether the start was cut inside its gid: then nothing was changed, and the gid found on the disk
// begins with the digits of the tail.
bool isCutGid(std::string_view tail, const TornChange& torn, OwnerIds present) {
  const std::string_view digits = tail.substr(tail.rfind(':') + 1);
  const std::string whole = std::to_string(present.gid);
  return present.uid == torn.record.oldIds.uid && whole.size() > digits.size() &&
         whole.starts_with(digits);
}

TailVerdict judgeTornChange(std::string_view tail,
                            const TornChange& torn,
                            const std::optional<EntryOnDisk>& onDisk,
                            bool atPageEnd) {
  if (!onDisk || onDisk->id != torn.record.id)
    return TailVerdict::Leave;
  if (onDisk->ids == torn.record.oldIds || (atPageEnd && isCutGid(tail, torn, onDisk->ids)))
    return TailVerdict::EndLine;
  return TailVerdict::CompleteChange;
}

}  // namespace

std::optional<TornChange> parseTornChange(std::string_view tail) {
  const bool isChange =
      !tail.empty() && std::string_view("#!=@+").find(tail.front()) == std::string_view::npos;
  if (!isChange || tail.back() == ':' ||
      std::count(tail.begin(), tail.end(), ':') != kColonsOfAStart)
    return std::nullopt;
  TornChange torn;
  parseLogLine(tail, torn.record);
  torn.followed = tail.front() == '>';
  return torn;
}

TailVerdict judgeTornTail(std::string_view tail,
                          const std::optional<EntryOnDisk>& onDisk,
                          TailPlace place) {
  if (tail.empty() || tail.front() == kUndoneMark || tail.front() == '!')
    return TailVerdict::Leave;
  if (place.insideLineFeedPath || tail.front() == '=' || tail.front() == '@')
    return TailVerdict::EndLine;
  // The inode of a link may be cut. The next walk finds the name again.
  if (tail.front() == '+')
    return TailVerdict::CommentOut;
  if (const auto torn = parseTornChange(tail))
    return judgeTornChange(tail, *torn, onDisk, place.atPageEnd);

  const auto colons = std::count(tail.begin(), tail.end(), ':');
  if (colons < 2)
    return TailVerdict::Leave;
  // The tail was cut inside a start: joined to the colons of a date it would read as an incomplete
  // change.
  if (colons <= kColonsOfAStart)
    return TailVerdict::EndLine;
  // When the tail was cut inside an end, the change was made, and undo needs the line as it is. A
  // tail with colons in its path is not a cut end. It stays, so that the date joins it: the line
  // then has more fields than undo trusts.
  const bool isTornEnd = place.atPageEnd && colons <= kColonsOfAStart + 2 &&
                         tail.find_first_not_of("0123456789:", tail.find(':')) == tail.npos;
  return isTornEnd ? TailVerdict::EndLine : TailVerdict::Leave;
}
