// What statfs() says about a file system, asked once for each device.
//
// A birth time is believed only where the local kernel keeps it and an inode keeps its number.
// Behind a network or FUSE mount a server or a user could answer anything. A device is its st_dev.
#pragma once

#include <sys/vfs.h>

#include <cstdint>
#include <map>

#include "entry/pinned_entry.h"

struct FileSystemFacts {
  uint64_t type = 0;        // statfs's f_type
  uint64_t fsid = 0;        // f_fsid; 0 when there is none
  bool keepsBirth = false;  // inode number and birth time come from the local kernel
  bool copiesUp = false;    // an overlay: the first change may give an entry a new inode
  bool isFuse = false;      // a user may have mounted it and may answer its calls
  bool isReadOnly = false;  // it is mounted read-only
};

// f_fsid as a number.
uint64_t fsidOf(const struct statfs& found);

class FileSystems {
 public:
  // The facts of the device of `entry`. When statfs() fails all fields are zero, and the next call
  // tries again.
  const FileSystemFacts& of(const PinnedEntry& entry) {
    return of(entry.descriptor(), entry.status().id.device);
  }
  const FileSystemFacts& of(int descriptor, uint64_t device);

  // The facts of `device`, on which `name` in the current directory was found, through a link when
  // `followed` is true. The name is opened only when the device is new. When that fails, or the
  // name leads to another device by now, all fields are zero, and the next call tries again.
  const FileSystemFacts& of(uint64_t device, const char* name, bool followed) {
    return latest != nullptr && device == latestDevice ? *latest : find(device, name, followed);
  }

 private:
  const FileSystemFacts& find(uint64_t device, const char* name, bool followed);
  const FileSystemFacts& remember(uint64_t device, const FileSystemFacts& facts);

  std::map<uint64_t, FileSystemFacts> known;
  uint64_t latestDevice = 0;
  const FileSystemFacts* latest = nullptr;  // in `known`
};
