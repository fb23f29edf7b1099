// One inode held fast, so that what is changed is what was looked at.
//
// Between the look at a name and the change of its owner anybody who can write the directory may
// put another inode under the name. A pinned entry is a path-only descriptor, through which owner
// and mode are changed. Undo pins every entry; the walk changes owners by name where only root can
// write the directory. Every operation answers true, or false with errno; ESTALE says that the name
// leads to another inode than expected.
#pragma once

#include <utility>

#include "entry/entry_status.h"
#include "services/unique_fd.h"

class PinnedEntry {
 public:
  // Opens `name`, relative to the current directory, through a link when `follow` is true.
  bool pin(const char* name, bool follow);

  // The same, and it has to be the inode `expected`.
  bool pin(const char* name, bool follow, DevInode expected);

  // Takes over a descriptor that was opened with O_PATH, and its status.
  void adopt(UniqueFd opened, const EntryStatus& itsStatus);

  // What it was when it was pinned.
  const EntryStatus& status() const { return seen; }

  int descriptor() const { return fd.get(); }

  // Gives the pin up to the caller.
  UniqueFd release() { return std::move(fd); }

  bool changeOwner(OwnerIds ids) const;

  // Sets the access time to what it is: an overlay copies the entry up.
  bool touch() const;

  // Puts back what a change of owner has cleared of the mode it was pinned with. A write clears the
  // set-id bits of a file, so they stay off when somebody has written to it since.
  bool restoreMode() const;

  // Sets `mode` as given; the kernel ignores the type bits.
  bool changeMode(mode_t mode) const;

 private:
  UniqueFd fd;
  EntryStatus seen;
};
