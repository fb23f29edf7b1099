// Into a directory and back again, when others may move things about meanwhile.
//
// A directory is entered only when what is opened is what was looked at, and a way back counts only
// when it leads to the directory that was left. errno tells about every failure; ESTALE means that
// another directory stands there now.
#pragma once

#include <sys/stat.h>

#include <optional>

#include "entry/file_ids.h"
#include "services/unique_fd.h"

enum class Opening {
  Done,
  Failed,    // there is no directory that could be read
  Exchanged  // what was looked at is not there any more
};

struct OpenedDirectory {
  Opening outcome = Opening::Failed;
  UniqueFd fd;              // for reading, when Done
  struct stat status = {};  // of what was opened, when Done
};

// Opens `name`, relative to the descriptor `directory`, or to the current directory if that is
// AT_FDCWD. Follows a link only when `throughLink` is true, and only from the current directory.
// Without `expected` whatever stands there is taken.
OpenedDirectory openDirectory(int directory,
                              const char* name,
                              bool throughLink,
                              std::optional<DevInode> expected);

bool isCurrentDirectory(DevInode expected);
