// Reads ahead of the walk: keeps helpers informed of where it stands and of what comes next.
//
// Helpers come as the setting idshift.read.ahead says: at once, or one by one while the walk is
// seen to wait. They keep to the walk's rules: what is excluded they do not list, and to another
// device the walk leads them. They are kept off file systems of FUSE, where a user could make them
// hang, and off an automounter's. Paths are the walk's; the current directory is the one that was
// entered last.
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

  // There are helpers, and enter() and offer() are of use.
  bool isActive() const { return helpers.hasBegun(); }

  // Once in WaitWatch::kBetween entries. True when it is time to begin.
  bool watch() { return (isActive() || rule.isAuto) && (tellPassed(), needsHelper()); }

  // Helpers are wanted from the first entry on.
  bool beginsAtOnce() const { return rule.helpers > 0; }

  // False when the top is not found in its parent any more; then there are no helpers.
  bool begin(int parent, DevInode top);

  // True when the helpers are behind: then offer() all that comes next.
  bool enter(const std::string& path, DevInode id);

  // Whether directories of this device may be offered: it is that of the current directory.
  bool takes(uint64_t device) const { return isWelcome && device == currentDevice; }
  // In the order in which the walk will come to them.
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
  uint32_t strangers = 0;  // directories that the helpers did not know of
};
