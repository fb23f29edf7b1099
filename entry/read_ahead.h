// Helper threads that look at names before the walk or the undo comes to them, so that walk and
// undo find the inodes in the kernel's cache and do not wait for the disk.
//
// Helpers only open and list, below one directory (the base), with a descriptor table of their own.
// They follow no symbolic link, cross no mount point that the walk has not crossed, trigger no
// automount, list a directory only when it is the expected inode, and share nothing with the
// program but the queue. Their failures are dropped: the run does not depend on them. They take the
// nearest work first and rest while about kWindow names were looked at ahead of the walk.
//
// begin() comes first, then addHelper(). end() waits for the helpers for a second at most and
// detaches one that hangs; the shared state lives as long as that helper.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "entry/file_ids.h"
#include "services/unique_fd.h"

class ReadAhead {
 public:
  static constexpr size_t kMostHelpers = 64;
  static constexpr size_t kWindow = 16384;

  // A directory to list; `path` is relative to the base.
  struct Directory {
    DevInode id;
    std::string path;
  };

  ReadAhead() = default;
  ~ReadAhead() { end(); }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // `directory` is the base and lies on `device`. Directories for whose path `isLeftOut` returns
  // true are never listed. Helpers call that function, possibly after end(), so it may use only
  // data that it owns.
  void begin(UniqueFd directory,
             uint64_t device,
             std::function<bool(const std::string&)> isLeftOut);
  bool hasBegun() const { return state != nullptr; }

  // False when no further helper can be started.
  bool addHelper();
  size_t helpers() const { return threads.size(); }
  void end();

  // The walk is in this directory now and is done with the one before. False when the queue did not
  // know the directory.
  bool enter(const Directory& directory);
  // The walk has dealt with this many further entries of the directory.
  void passed(size_t entries);
  // These directories come next, in that order. Those already in the queue keep their place.
  void offer(std::vector<Directory> next);

  // Adds names, as paths relative to the base, behind all others. They are dropped once `line`
  // lines were passed.
  void offerNames(std::vector<std::string> names, size_t line);

  struct State;

 private:
  std::shared_ptr<State> state;
  UniqueFd base;
  std::vector<pthread_t> threads;
};
