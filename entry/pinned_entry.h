// Holds one inode by a descriptor, so that the inode that is changed is the one that was looked at.
//
// Between a look at a name and the change of its owner, anybody who can write the directory may put
// another inode under the name. A pinned entry is an O_PATH descriptor, through which owner and
// mode are changed. Undo pins every entry. The walk changes owners by name where only root can
// write the directory and neither mode nor attributes have to be put back. Every operation returns
// true, or false with errno; ESTALE means that the name leads to another inode than expected.
#pragma once

#include <utility>

#include "entry/entry_status.h"
#include "services/unique_fd.h"

class PinnedEntry {
 public:
  // Opens `name`, relative to the current directory; follows a symbolic link when `follow` is true.
  bool pin(const char* name, bool follow);

  // The same; fails with ESTALE unless the inode is `expected`.
  bool pin(const char* name, bool follow, DevInode expected);

  // Takes over a descriptor that was opened with O_PATH, and its status.
  void adopt(UniqueFd opened, const EntryStatus& itsStatus);

  // The status at the time of the pin.
  const EntryStatus& status() const { return seen; }

  int descriptor() const { return fd.get(); }

  // Hands the descriptor over to the caller.
  UniqueFd release() { return std::move(fd); }

  bool changeOwner(OwnerIds ids) const;

  // Sets the access time to its present value, which makes an overlay copy the entry up.
  bool touch() const;

  // Sets the mode bits again that a change of owner has cleared, as they were at the time of the
  // pin. A write clears the set-id bits of a file too, so they stay off when somebody has written
  // to the file since.
  bool restoreMode() const;

  // Sets `mode` as given; the kernel ignores the type bits.
  bool changeMode(mode_t mode) const;

 private:
  UniqueFd fd;
  EntryStatus seen;
};
