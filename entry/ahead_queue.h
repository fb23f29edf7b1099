// What the helpers of a read-ahead have to do, in the order in which the walk will come to it.
//
// Work that is begun keeps its place, and what it brings to light is put there: the names of a
// directory, the rest of it, then its directories, the last one first, which is the walk's order.
// A directory is forgotten when the walk has left it, with all that is found in it then: the walk
// knows of that itself. Not safe for threads; whoever shares a queue has a lock. Sizes are bounded;
// what does not fit is dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "entry/file_ids.h"

struct AheadWork {
  DevInode id;                     // of the directory
  std::string path;                // its path, relative to the base
  int64_t offset = 0;              // where its listing goes on; of an undo's names: the line behind
  std::vector<std::string> names;  // to be looked at; without any the directory is to be listed
  bool isEntered = false;          // by the walk: the last step to it may lead over a mount
};

struct AheadItem {
  AheadWork work;
  bool isTaken = false;
};

class AheadQueue {
 public:
  using Place = std::list<AheadItem>::iterator;

  explicit AheadQueue(size_t names) : window(names) {}

  // The walk. False when the directory it enters was not known.
  bool enter(const DevInode& id, const std::string& path);
  void passed(size_t entries);
  void offer(std::vector<AheadWork> next);

  // An undo, which says with passed() how many lines it has dealt with: names on the lines before
  // `line`.
  void offerNames(std::vector<std::string> names, size_t line);

  // The helpers: the nearest work, if there is any and the window has room for it; then what it
  // has brought to light, in order, and how many names were looked at.
  bool hasWork() const { return waiting > 0 && ahead() < window; }
  std::optional<Place> take();
  void settle(Place place, std::vector<AheadWork> found, size_t looked);

  size_t ahead() const;
  size_t length() const { return items.size(); }

 private:
  struct Known {
    size_t looked = 0;
  };

  bool isPassed(const AheadWork& work) const;
  Place insert(Place before, AheadWork work);
  void erase(Place place);
  void forget(const DevInode& id);
  void clear();

  size_t window;
  std::list<AheadItem> items;
  std::map<DevInode, Known> known;
  size_t waiting = 0;  // items that nobody works on
  size_t bytes = 0;
  size_t total = 0;  // names that were looked at in known directories
  std::optional<DevInode> current;
  size_t walked = 0;  // in the current directory; of an undo: in all
};
