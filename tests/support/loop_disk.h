// A disk of its own, whose power can be cut: ext4, or btrfs for its quotas that bind root as well,
// on a loop device over a file of the sandbox.
//
// A cut loses what was not synced, as the end of the power would: the file system takes nothing
// more, its journal is not flushed, and what is found after the next mount is what the disk held.
// The device keeps its number from one mount to the next, and goes away with the object. For tests
// inside the sandbox only. Failures abort: a test that goes on elsewhere would prove nothing.
#pragma once

#include <string>
#include <vector>

#include "services/unique_fd.h"

class LoopDisk {
 public:
  // Makes the image and the file system on it. Why loop devices or the program for it can't be had,
  // or nothing. `options` are the maker's.
  std::string create(const std::string& image,
                     const std::string& fileSystem = "ext4",
                     const std::vector<std::string>& options = {});

  void mountAt(const std::string& folder);
  void remount() { mountAt(std::string(mountPoint)); }
  void unmount();
  // Brings all that was written to the disk.
  void flush() const;
  void cutPower() const;

 private:
  UniqueFd openTop() const;

  std::string type;
  UniqueFd device;
  std::string deviceName;
  std::string mountPoint;
};
