// The lock that lets one run at a time write: a commit and an undo hold it from before they touch
// the log until they end.
//
// The lock is on a file of its own that root alone can open: everybody may read the log, so anybody
// could hold a lock on the log itself. The file stays when the run ends.
#pragma once

#include "services/unique_fd.h"

class RunLock {
 public:
  // False with errno: EWOULDBLOCK when another run holds the lock; EPERM when the file is not
  // regular, not root's or the caller's, or has more than one name.
  bool take();

  void drop() { file.reset(); }

 private:
  UniqueFd file;
};
