// A log that a new one takes the place of: under --restart, and when the machine belongs to another
// domain now. Its records are the way back of what is still converted, so it is renamed, not cut.
//
// Names are idshift.log.old, then .old.1 and so on, the first that is free. The caller holds the
// run's lock. Functions that return bool leave errno when they return false.
#pragma once

#include <string>

class FormerLog {
 public:
  // Whether the log holds anything besides its header and comments. True also when that cannot be
  // read.
  static bool isWorthKeeping();

  // Renames the log out of the way.
  bool keep();

  bool isKept() const { return !name.empty(); }

  // Puts the kept log back over the one that took its place, which recorded nothing.
  bool putBack();

  // It stays where it is.
  void leave() { name.clear(); }

 private:
  std::string name;  // empty when none is kept
};
