#include "privatelog/torn_tail.h"

#include <algorithm>

std::optional<TornChange> parseTornChange(std::string_view tail) {
  constexpr std::ptrdiff_t kColonsOfAStart = 4;
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
                          bool insideLineFeedPath) {
  if (tail.empty() || tail.front() == '#' || tail.front() == '!')
    return TailVerdict::Leave;
  if (insideLineFeedPath || tail.front() == '+' || tail.front() == '=' || tail.front() == '@')
    return TailVerdict::EndLine;
  if (const auto torn = parseTornChange(tail)) {
    if (!onDisk || onDisk->id != torn->record.id)
      return TailVerdict::Leave;
    return onDisk->ids == torn->record.oldIds ? TailVerdict::EndLine : TailVerdict::CompleteChange;
  }
  // Two to four colons: cut inside a start, which joined to a date's own colons would read as an
  // incomplete change.
  const auto colons = std::count(tail.begin(), tail.end(), ':');
  return colons >= 2 && colons <= 4 ? TailVerdict::EndLine : TailVerdict::Leave;
}
