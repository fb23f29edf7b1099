// One run at a time: the lock that a commit and an undo hold from before they touch the log until
// their end.
//
// It is a file of its own, which root alone can open: a lock on the log itself, which everybody may
// read, could be held by anybody. The file stays when the run ends.
#pragma once

#include "services/unique_fd.h"

class RunLock {
 public:
  // False with errno: EWOULDBLOCK when another run holds the lock, EPERM when the file is not a
  // regular one of root's (or the caller's) with one name.
  bool take();

  void drop() { file.reset(); }

 private:
  UniqueFd file;
};
