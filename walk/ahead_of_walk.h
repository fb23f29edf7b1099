// Reads ahead of the walk: tells the helpers (read_ahead.h) where the walk is and which directories
// come next.
//
// The setting idshift.read.ahead decides when helpers start: all at once, or one by one while the
// walk waits for its disk. Helpers keep to the rules of the walk: they list no excluded directory,
// and they reach another device only after the walk has. They get no work on FUSE, where a user
// could make them hang, nor on an automounter's file system. Paths are those of the walk; the
// current directory is the one that was entered last.
#pragma once

#include <string>
#include <vector>

#include "entry/read_ahead.h"
#include "entry/wait_watch.h"

class AheadOfWalk {
 public:
  using Directories = std::vector<ReadAhead::Directory>;

  // `top` is the path at which the walk begins.
  explicit AheadOfWalk(const std::string& top);

  // Whether begin() has succeeded; enter() and offer() may be called only then.
  bool isActive() const { return helpers.hasBegun(); }

  // Call once in WaitWatch::kBetween entries. True when begin() should be called.
  bool watch() { return (isActive() || rule.isAuto) && (tellPassed(), needsHelper()); }

  // Whether helpers are wanted from the first entry on.
  bool beginsAtOnce() const { return rule.helpers > 0; }

  // False when the top is no longer found in its parent; then this walk has no helpers.
  bool begin(int parent, DevInode top);

  // True when the helpers are behind the walk: then offer() everything that comes next.
  bool enter(const std::string& path, DevInode id);

  // Whether directories of this device may be offered: only those of the device of the current
  // directory.
  bool takes(uint64_t device) const { return isWelcome && device == currentDevice; }
  // Directories in the order in which the walk will come to them.
  void offer(Directories next);

 private:
  void tellPassed();
  bool needsHelper();
  std::string relative(const std::string& path) const;

  const std::string topPath;
  HelperRule rule;
  WaitWatch waits;
  ReadAhead helpers;
  uint64_t currentDevice = 0;
  bool isWelcome = false;
  uint32_t strangers = 0;  // directories that the helpers did not know
};
