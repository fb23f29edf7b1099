// The directories between the top of a walk and where it stands, what is still to be walked in each
// of them, and the way back to them.
//
// A stack of its own instead of the machine's: a tree may be deeper than that one can hold. The
// nearest levels in which something is still to be walked keep a descriptor, from which that is
// opened; to the others ".." leads, and counts only where it leads to the directory that was left.
// The current directory stays behind until it is needed: often a whole row of levels is done with
// at once. errno tells about every failure.
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
  uint64_t inode = 0;       // its st_ino: what must be found there when its turn comes
  bool wasSymlink = false;  // reached through a followed link
  std::string name;
};

class Levels {
 public:
  bool isEmpty() const { return levels.empty(); }
  size_t depth() const { return levels.size(); }
  const DevInode& top() const { return levels.front().self; }
  const DevInode& innermost() const { return levels.back().self; }

  // The current directory is a further level now.
  void enter(DevInode self, bool wasSymlink);
  // Found in the innermost level; the last one found is the first to be walked.
  void add(PendingDir found) { pending.push_back(std::move(found)); }
  // A descriptor of the innermost level, behind the last add().
  void hold(UniqueFd fd);

  bool hasNext() const { return pending.size() > levels.back().pendingBegin; }
  // Whether the next one cannot be opened before goBack().
  bool needsWayBack() const { return !levels.back().fd || pending.back().wasSymlink; }
  PendingDir takeNext();
  // Opens what was taken last, by its name.
  OpenedDirectory open(const PendingDir& next, const char* name);

  // The innermost level is done with.
  void leave();
  // Brings the current directory back to the innermost level, whose path is `path`, or to
  // `topParent` when there is none. On failure none of its names is opened any more.
  bool goBack(const std::string& path, int topParent);

  // What is to be walked from `firstLevel` on, the next one first, as far as `ahead` takes it.
  AheadOfWalk::Directories comingUp(size_t firstLevel,
                                    const std::string& path,
                                    const AheadOfWalk& ahead) const;

 private:
  struct Level {
    DevInode self;
    bool wasSymlink = false;
    bool lost = false;  // the way back to it failed: none of its names may be looked up any more
    size_t pendingBegin = 0;
    UniqueFd fd;  // while it is among the nearest, and a directory in it is still to be walked
  };

  static size_t mostToHold();
  bool changeTo(const std::string& path);
  bool goUp() const;

  const size_t mostHeld = mostToHold();
  std::vector<Level> levels;
  std::vector<PendingDir> pending;  // a stack
  size_t levelsBack = 0;       // how many levels the current directory lies below the innermost
  bool returnsByPath = false;  // ".." does not lead from there to that
};
