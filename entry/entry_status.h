// The status of an entry with its birth time: statx() in place of lstat(), stat() and fstat(), at
// the same cost.
//
// Times are nanoseconds since 1970. `birth` is 0 where the file system keeps no birth time. Like
// lstat() and stat(), lookAt() triggers no automount. Both functions return false with errno.
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
// The inode of a descriptor, which may be opened with O_PATH.
bool lookAt(int descriptor, EntryStatus& status);
