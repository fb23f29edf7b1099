// Reads ahead of an undo: hands the paths of the lines that come next to helpers.
//
// The lines come from a second scan of the log, which is opened when there are helpers; they come
// as the setting idshift.read.ahead says, at once or one by one while the undo is seen to wait.
// Helpers look only at paths below the mount of the directory that the undo stands in, and not at
// all where that is FUSE's or an automounter's: everywhere else a path may lead over a mount on
// which a user could make them hang. They move on when the undo has come to another mount.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "entry/read_ahead.h"
#include "entry/wait_watch.h"
#include "privatelog/log_scan.h"

class AheadOfUndo {
 public:
  // `hardened` is how the log is read.
  explicit AheadOfUndo(bool hardened);

  // The line at `offset` was dealt with. `directory` is the path of the current directory, empty
  // while there is none yet.
  void passed(const std::string& directory, uint64_t offset);

  // Afterwards there are no helpers, but for one that hangs.
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
  std::string mount;       // the path below which helpers look, with a slash at its end
  uint64_t device = 0;     // of that mount
  uint32_t moves = 0;      // to another mount
  uint64_t lines = 0;      // that the undo has dealt with
  uint64_t told = 0;       // of them, to the helpers
  uint64_t begun = 0;      // as many as when the helpers began there
  uint64_t handedOut = 0;  // that the helpers were told of, from the same line on
};
