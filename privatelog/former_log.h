// A log that a new one takes the place of: under --restart, and when the machine belongs to another
// domain now. Its records are the way back of what is still converted, so it is renamed, not cut.
//
// Names are idshift.log.old, then .old.1 and so on, the first that is free; the index follows with
// ".index" behind that name. The log is renamed first, and back last, so an index without a log
// beside a former log without an index tells of a run that was killed in between. The caller holds
// the run's lock. Functions that return bool leave errno when they return false.
#pragma once

#include <string>

class FormerLog {
 public:
  // Makes room for a new log: renames the log when it holds anything besides its header and
  // comments, or when that cannot be read, and the index with it; removes the index of another one.
  // `logWasThere` tells whether this run has found a log or made an empty one.
  bool clearTheWay(bool logWasThere);

  bool isKept() const { return !name.empty(); }

  // Puts the kept log back in place of the new one, which recorded nothing.
  bool putBack();

  // It stays where it is.
  void leave() { name.clear(); }

 private:
  bool keep();

  std::string name;  // empty when none is kept
};
