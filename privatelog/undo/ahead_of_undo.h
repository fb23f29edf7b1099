// Reads ahead of an undo: gives the paths of the next lines to the helpers (read_ahead.h).
//
// The lines come from a second scan of the log, opened with the first helper. The setting
// idshift.read.ahead decides when helpers start: all at once, or one by one while the undo waits
// for its disk. Helpers look only at paths below the root of the mount on which the current
// directory of the undo lies, and only if that mount is neither FUSE's nor an automounter's.
// Elsewhere a path could cross a mount point behind which a user makes them hang. When the undo
// comes to another mount the helpers follow.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "entry/read_ahead.h"
#include "entry/wait_watch.h"
#include "privatelog/log_scan.h"

class AheadOfUndo {
 public:
  // `hardened` is for the scan of the log.
  explicit AheadOfUndo(bool hardened);

  // The undo has dealt with the line at `offset`. `directory` is the path of the current directory;
  // empty while that is unknown.
  void passed(const std::string& directory, uint64_t offset);

  // Ends the helpers; one that hangs is left behind.
  void end() {
    helpers.end();
    rule = {false, 0};
  }

 private:
  bool begin(const std::string& directory, uint64_t offset);
  bool beginAt(const std::string& directory, size_t count);
  void follow(const std::string& directory);
  void handOut();

  bool isHardened;
  HelperRule rule;
  WaitWatch waits;
  ReadAhead helpers;
  std::unique_ptr<LogScan> scan;
  bool isAtEnd = false;
  std::string mount;       // its root's path, with a slash at its end; helpers look below it
  uint64_t device = 0;     // st_dev of that mount
  uint32_t moves = 0;      // how often the helpers moved to another mount
  uint64_t lines = 0;      // of changes: how many the undo has dealt with
  uint64_t told = 0;       // how many of them were passed on to the helpers
  uint64_t begun = 0;      // value of `lines` when the helpers began on this mount
  uint64_t handedOut = 0;  // how many the scan has passed, counted like `lines`
};
