// Enters a directory and comes back, while others may rename and exchange directories.
//
// A directory is entered only when the opened inode is the one that was looked at. A way back
// counts only when it leads to the directory that was left. Failures leave errno; ESTALE means that
// the name leads to another directory now.
#pragma once

#include <sys/stat.h>

#include <optional>

#include "entry/file_ids.h"
#include "services/unique_fd.h"

enum class Opening {
  Done,
  Failed,    // no directory could be opened there for reading
  Exchanged  // the name no longer leads to what was looked at
};

struct OpenedDirectory {
  Opening outcome = Opening::Failed;
  UniqueFd fd;              // for reading, when Done
  struct stat status = {};  // of the opened directory, when Done
};

// Opens `name`, relative to the descriptor `directory`, or to the current directory if that is
// AT_FDCWD. Follows a symbolic link only when `throughLink` is true; `directory` must be AT_FDCWD
// then. Without `expected` any directory is accepted.
OpenedDirectory openDirectory(int directory,
                              const char* name,
                              bool throughLink,
                              std::optional<DevInode> expected);

bool isCurrentDirectory(DevInode expected);
