// Threads that look at names before the walk or the undo comes to them, so that these find in the
// kernel's memory what they would wait for.
//
// Helpers open and list and nothing else, below one directory, with a table of descriptors of their
// own. They follow no link, cross no mount that the walk has not crossed and bring none up, list a
// directory only when it is the expected inode, and touch nothing of the program but their own
// queue. What fails is dropped: the work is done without them as well. Nearest work comes first; at
// most kWindow names are known ahead. No helper ever begins while begin() was not called; all ends
// with end(), which waits for a second at most and leaves behind who hangs; such a one owns what it
// still uses.
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

  // A directory that is to be listed; `path` is relative to the base.
  struct Directory {
    DevInode id;
    std::string path;
  };

  ReadAhead() = default;
  ~ReadAhead() { end(); }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // `directory` is where all paths begin, and is on `device`. Directories whose path `isLeftOut`
  // names are not listed, whoever offers them; helpers call it, so that it may use nothing but what
  // it owns.
  void begin(UniqueFd directory,
             uint64_t device,
             std::function<bool(const std::string&)> isLeftOut);
  bool hasBegun() const { return state != nullptr; }

  // False when there is no further helper to be had.
  bool addHelper();
  size_t helpers() const { return threads.size(); }
  void end();

  // The walk stands in this directory now, and has done with the one before. False when the helpers
  // did not know of it.
  bool enter(const Directory& directory);
  // It has dealt with so many entries of the directory.
  void passed(size_t entries);
  // These come next, in that order; those that are known already stay where they are.
  void offer(std::vector<Directory> next);

  // Names, as paths relative to the base, that come behind all that was given before, and are of no
  // use any more when `line` lines were passed.
  void offerNames(std::vector<std::string> names, size_t line);

  struct State;

 private:
  std::shared_ptr<State> state;
  UniqueFd base;
  std::vector<pthread_t> threads;
};
