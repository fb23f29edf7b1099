// A disk whose power a test can cut: a file system on a loop device over a file of the sandbox. It
// is ext4, or btrfs, whose quotas limit root as well.
//
// A cut loses what was not synced, as a power failure does: the file system accepts no more writes,
// its journal is not flushed, and the next mount finds what the disk held. The device number stays
// the same from one mount to the next. The device goes away with the object. For tests inside the
// sandbox only. Failures abort, because a test that went on without the disk would prove nothing.
#pragma once

#include <string>
#include <vector>

#include "services/unique_fd.h"

class LoopDisk {
 public:
  // Makes the image and a file system in it; `options` go to mkfs. Returns an empty string, or the
  // reason if mkfs or loop devices are missing.
  std::string create(const std::string& image,
                     const std::string& fileSystem = "ext4",
                     const std::vector<std::string>& options = {});

  void mountAt(const std::string& folder);
  void remount() { mountAt(std::string(mountPoint)); }
  void unmount();
  // Syncs the file system.
  void flush() const;
  void cutPower() const;

 private:
  UniqueFd openTop() const;

  std::string type;
  UniqueFd device;
  std::string deviceName;
  std::string mountPoint;
};
