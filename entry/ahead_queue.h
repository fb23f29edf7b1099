// The work of the read-ahead helpers, in the order in which the walk will come to it.
//
// Work that a helper has begun keeps its place in the list, and what the helper finds is put at
// that place: the names of the directory, the rest of its listing, then its subdirectories with the
// last one first, which is the order of the walk. A directory is forgotten when the walk enters the
// next one; what helpers find in a forgotten directory is dropped.
//
// The queue is not safe for threads: whoever shares one holds a lock. Items, directories and bytes
// are bounded, and work that exceeds a bound is dropped.
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
  DevInode id;         // of the directory
  std::string path;    // its path, relative to the base
  int64_t offset = 0;  // where its listing goes on; for names of an undo: the line number
  std::vector<std::string> names;  // to be looked at; when empty, the directory is to be listed
  bool isEntered = false;          // by the walk: the last step of `path` may cross a mount point
};

struct AheadItem {
  AheadWork work;
  bool isTaken = false;
};

class AheadQueue {
 public:
  using Place = std::list<AheadItem>::iterator;

  explicit AheadQueue(size_t names) : window(names) {}

  // For the walk. enter() is false when the queue did not know the directory.
  bool enter(const DevInode& id, const std::string& path);
  void passed(size_t entries);
  void offer(std::vector<AheadWork> next);

  // For an undo: names from lines before the line number `line`. An undo calls passed() with the
  // number of lines that it has dealt with.
  void offerNames(std::vector<std::string> names, size_t line);

  // For the helpers. take() hands out the first work that nobody has taken, unless the window is
  // full. settle() ends that work: `found` is new work in the order of the walk, `looked` the
  // number of names that were looked at.
  bool hasWork() const { return waiting > 0 && ahead() < window; }
  std::optional<Place> take();
  void settle(Place place, std::vector<AheadWork> found, size_t looked);

  // How many names were looked at that the walk has not come to yet.
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
  size_t waiting = 0;  // items that nobody has taken
  size_t bytes = 0;
  size_t total = 0;  // names that were looked at in known directories
  std::optional<DevInode> current;
  size_t walked = 0;  // entries of the current directory; for an undo: all lines
};
