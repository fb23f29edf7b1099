// A disk of its own, whose power can be cut: ext4, or btrfs for its quotas that bind root as well,
// on a loop device over a file of the sandbox.
//
// A cut loses what was not synced, as the end of the power would: the file system takes nothing
// more, its journal is not flushed, and what is found after the next mount is what the disk held.
// The device keeps its number from one mount to the next, and goes away with the object. For tests
// inside the sandbox only.
#pragma once

#include <string>

#include "services/unique_fd.h"

class LoopDisk {
 public:
  explicit LoopDisk(const char* fileSystem = "ext4") : type(fileSystem) {}

  // Makes the image and the file system on it. False, with the reason in problem(), where loop
  // devices or the program for it can't be had.
  bool create(const std::string& image);
  const std::string& problem() const { return reason; }

  // Failures abort: a test that goes on elsewhere than on this disk would prove nothing.
  void mountAt(const std::string& folder);
  void remount();
  // Brings all that was written to the disk.
  void flush() const;
  void cutPower() const;

 private:
  bool attach(const std::string& image);

  std::string type;
  UniqueFd device;
  std::string deviceName;
  std::string mountPoint;
  std::string reason;
};
