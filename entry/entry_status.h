// What one look at an entry tells, its birth time included: statx where the rest of the machine
// would call lstat, stat or fstat, at the same cost.
//
// Times are nanoseconds since 1970. A file system that keeps no birth time shows as birth 0. Like
// lstat and stat, a look brings up no automount. Both functions return false with errno.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "entry/file_ids.h"

struct EntryStatus {
  DevInode id;
  OwnerIds owner;
  mode_t mode = 0;  // type and permissions, as st_mode
  uint32_t links = 0;
  int64_t birth = 0;
  int64_t modified = 0;  // mtime
  int64_t changed = 0;   // ctime

  mode_t type() const { return mode & S_IFMT; }
};

// `name` is relative to the current directory.
bool lookAt(const char* name, bool follow, EntryStatus& status);
// The inode behind a descriptor, one opened with O_PATH included.
bool lookAt(int descriptor, EntryStatus& status);
