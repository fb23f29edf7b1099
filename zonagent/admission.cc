#include "zonagent/admission.h"

#include <algorithm>
#include <map>

namespace zonagent {
namespace {

constexpr std::ptrdiff_t kMostOfRoot = 64;
constexpr std::ptrdiff_t kMostOfOneUser = 16;
constexpr std::ptrdiff_t kMostOfOthers = 128;

// Lets the new connection in if `uid` has an idle one to close.
Admission inPlaceOf(uid_t uid, const std::vector<Seat>& seats) {
  std::optional<size_t> idlest;
  for (size_t i = 0; i < seats.size(); ++i) {
    const bool candidate = seats[i].idle && seats[i].uid == uid;
    if (candidate && (!idlest || seats[i].since < seats[*idlest].since))
      idlest = i;
  }
  return {idlest.has_value(), idlest};
}

Admission inPlaceOfTheGreediest(const std::vector<Seat>& seats) {
  std::map<uid_t, size_t> idle;
  for (const Seat& seat : seats) {
    if (seat.idle && seat.uid != 0)
      ++idle[seat.uid];
  }
  const auto most = std::max_element(
      idle.begin(), idle.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == idle.end() ? Admission{} : inPlaceOf(most->first, seats);
}

}  // namespace

Admission admit(uid_t uid, const std::vector<Seat>& seats) {
  const auto own = std::count_if(seats.begin(), seats.end(),
                                 [uid](const Seat& seat) { return seat.uid == uid; });
  if (own >= (uid == 0 ? kMostOfRoot : kMostOfOneUser))
    return inPlaceOf(uid, seats);
  const auto others =
      std::count_if(seats.begin(), seats.end(), [](const Seat& seat) { return seat.uid != 0; });
  if (uid != 0 && others >= kMostOfOthers)
    return inPlaceOfTheGreediest(seats);
  return {true};
}

}  // namespace zonagent
