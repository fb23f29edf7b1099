// Which file systems a run has changed, so that they can be synced at its end.
//
// The first change on a device opens the current directory, which holds the changed entry, and
// keeps the descriptor for syncfs(). The current directory may be on another device than the entry
// (a mount point, the target of a link). Then later changes on that device try again, and if none
// succeeds sync() syncs all file systems. A device is its st_dev.
#pragma once

#include <cstdint>
#include <vector>

#include "services/unique_fd.h"

class ChangedDevices {
 public:
  // An entry of the current directory was changed. Free when the last call named the same device.
  void note(uint64_t device) {
    if (devices.empty() || devices[latest].device != device)
      remember(device);
  }

  // Syncs all noted devices and forgets them. False with errno when one of them failed.
  bool sync();

 private:
  struct Device {
    uint64_t device;
    UniqueFd directory;  // on that device; empty when none could be opened
  };

  void remember(uint64_t device);

  std::vector<Device> devices;
  size_t latest = 0;
};
