// Helpers are of use only if they are ahead of the walk and near to it. A plain first-in, first-out
// queue fails at both: a walk goes depth first, so the directories that were found first are the
// last ones it enters, and helpers would read names that are needed in an hour while the walk waits
// for the next one. So the list is kept in the order of the walk, new work goes in at the place of
// the work that found it, and helpers always take from the front. The window holds them back when
// they have looked at so many names that the kernel may forget the first ones before the walk
// comes.
//
// The queue does not learn which directories the walk leaves out, so work for such directories
// piles up. It is dropped when the walk enters an unknown directory while the window or the memory
// is full.

#include "entry/ahead_queue.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kMostItems = 8192;
constexpr size_t kMostKnown = 32768;
constexpr size_t kMostBytes = size_t{2} << 20;

// Stands for the directory of the names of an undo, which are whole paths.
constexpr DevInode kNone = {};

size_t sizeOf(const AheadWork& work) {
  size_t size = work.path.size() + sizeof(AheadItem);
  for (const std::string& name : work.names)
    size += name.size() + sizeof(std::string);
  return size;
}

bool isListing(const AheadWork& work) {
  return work.names.empty() && work.offset == 0;
}

}  // namespace

size_t AheadQueue::ahead() const {
  size_t behind = 0;
  if (const auto found = current ? known.find(*current) : known.end(); found != known.end())
    behind = std::min(walked, found->second.looked);
  return total - behind;
}

bool AheadQueue::enter(const DevInode& id, const std::string& path) {
  if (current)
    forget(*current);
  current = id;
  walked = 0;
  if (known.contains(id))
    return true;
  // The queue is full of work for directories that the walk does not enter, so it starts anew.
  if (ahead() >= window || known.size() >= kMostKnown)
    clear();
  known.try_emplace(id);
  insert(items.begin(), {id, path, 0, {}, true});
  return false;
}

void AheadQueue::passed(size_t entries) {
  walked += entries;
}

void AheadQueue::offer(std::vector<AheadWork> next) {
  const Place front = items.begin();
  for (AheadWork& work : next) {
    if (known.size() < kMostKnown && known.try_emplace(work.id).second)
      insert(front, std::move(work));
  }
}

void AheadQueue::offerNames(std::vector<std::string> names, size_t line) {
  known.try_emplace(kNone);
  insert(items.end(), {kNone, ".", static_cast<int64_t>(line), std::move(names)});
}

std::optional<AheadQueue::Place> AheadQueue::take() {
  for (Place place = items.begin(); place != items.end() && hasWork();) {
    const Place here = place++;
    if (here->isTaken)
      continue;
    if (isPassed(here->work)) {
      erase(here);
      continue;
    }
    here->isTaken = true;
    --waiting;
    return here;
  }
  return std::nullopt;
}

// Whether the walk or the undo has already passed this work.
bool AheadQueue::isPassed(const AheadWork& work) const {
  return work.id == kNone ? static_cast<size_t>(work.offset) <= walked : !known.contains(work.id);
}

void AheadQueue::settle(Place place, std::vector<AheadWork> found, size_t looked) {
  const auto directory = known.find(place->work.id);
  if (directory != known.end() && !(place->work.id == kNone)) {
    directory->second.looked += looked;
    total += looked;
    for (AheadWork& work : found) {
      if (!isListing(work) || (known.size() < kMostKnown && known.try_emplace(work.id).second))
        insert(place, std::move(work));
    }
  }
  erase(place);
}

AheadQueue::Place AheadQueue::insert(Place before, AheadWork work) {
  const size_t size = sizeOf(work);
  if (items.size() >= kMostItems || bytes + size > kMostBytes) {
    if (isListing(work))
      known.erase(work.id);
    return before;
  }
  bytes += size;
  ++waiting;
  return items.insert(before, {std::move(work)});
}

void AheadQueue::erase(Place place) {
  bytes -= sizeOf(place->work);
  if (!place->isTaken)
    --waiting;
  items.erase(place);
}

void AheadQueue::forget(const DevInode& id) {
  const auto found = known.find(id);
  if (found == known.end())
    return;
  total -= found->second.looked;
  known.erase(found);
}

void AheadQueue::clear() {
  for (Place place = items.begin(); place != items.end();) {
    const Place here = place++;
    if (!here->isTaken)
      erase(here);
  }
  known.clear();
  total = 0;
}
