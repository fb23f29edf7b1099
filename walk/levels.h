// The levels of a walk: the directories from its top down to the innermost one, which of their
// subdirectories are still to be walked, and the way back to each level.
//
// The levels are an explicit stack, because a tree may be deeper than the call stack can hold. The
// nearest levels with subdirectories left keep a descriptor, from which the next subdirectory is
// opened; levels.cc tells about the others. leave() does not move the current directory: goBack()
// does, for all levels that were left meanwhile. Failures leave errno.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "services/unique_fd.h"
#include "walk/ahead_of_walk.h"
#include "walk/descent.h"

// A directory that was found while its parent was read, and is not walked yet.
struct PendingDir {
  uint64_t device = 0;      // of the directory, st_dev
  uint64_t inode = 0;       // its st_ino: the inode that must be found when its turn comes
  bool wasSymlink = false;  // reached through a followed link
  std::string name;
};

class Levels {
 public:
  bool isEmpty() const { return levels.empty(); }
  size_t depth() const { return levels.size(); }
  const DevInode& top() const { return levels.front().self; }
  const DevInode& innermost() const { return levels.back().self; }

  // The current directory becomes the innermost level.
  void enter(DevInode self, bool wasSymlink);
  // Adds a directory found in the innermost level. The one added last is walked first.
  void add(PendingDir found) { pending.push_back(std::move(found)); }
  // Hands over a descriptor of the innermost level; call after its last add().
  void hold(UniqueFd fd);

  bool hasNext() const { return pending.size() > levels.back().pendingBegin; }
  // Whether goBack() must come before the next directory is opened.
  bool needsWayBack() const { return !levels.back().fd || pending.back().wasSymlink; }
  PendingDir takeNext();
  // Opens the directory that takeNext() has returned, by its name.
  OpenedDirectory open(const PendingDir& next, const char* name);

  // Ends the innermost level.
  void leave();
  // Makes the innermost level, whose path is `path`, the current directory; without a level,
  // `topParent`. After a failure none of the level's names is opened any more.
  bool goBack(const std::string& path, int topParent);

  // The directories still to be walked in `firstLevel` and deeper, the next one first, as far as
  // `ahead` takes them.
  AheadOfWalk::Directories comingUp(size_t firstLevel,
                                    const std::string& path,
                                    const AheadOfWalk& ahead) const;

 private:
  struct Level {
    DevInode self;
    bool wasSymlink = false;
    bool lost = false;  // the way back failed: its names may not be looked up any more
    size_t pendingBegin = 0;
    UniqueFd fd;  // of a near level in which a directory is still to be walked
  };

  static size_t mostToHold();
  bool changeTo(const std::string& path);
  bool goUp() const;

  const size_t mostHeld = mostToHold();
  std::vector<Level> levels;
  std::vector<PendingDir> pending;  // a stack
  size_t levelsBack = 0;       // how many levels the current directory lies below the innermost
  bool returnsByPath = false;  // ".." does not lead from the current directory to it
};
