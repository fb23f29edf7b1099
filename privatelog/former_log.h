// Keeps a log that a new one replaces: with --restart, and when the machine belongs to another
// domain now. Its records are the only way to undo what is still converted, so the log is renamed,
// not truncated.
//
// Its new name is idshift.log.old, .old.1 and so on, the first free one; its index is renamed to
// that name with ".index" behind it. The log is renamed first and renamed back last. So an index
// without a log, beside a former log without an index, shows that a run was killed in between. The
// caller holds the run's lock. Functions that return bool leave errno when they return false.
#pragma once

#include <string>

class FormerLog {
 public:
  // Makes room for a new log. A log that holds anything besides its header and comments, or that
  // cannot be read, is renamed with its index. An index that is left without such a log is removed,
  // or completes a rename that a kill cut short. `logWasThere` tells whether this run found a log
  // or made an empty one.
  bool clearTheWay(bool logWasThere);

  bool isKept() const { return !name.empty(); }

  // Puts the kept log back in place of the new one, which recorded nothing.
  bool putBack();

  // The kept log keeps its new name.
  void leave() { name.clear(); }

 private:
  bool keep();

  std::string name;  // of the kept log; empty when none is kept
};
