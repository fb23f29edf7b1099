// Which file systems a run has changed, so that they can be brought to the disk at its end.
//
// The first change on a device opens the current directory, which in walk and undo is the one that
// holds the entry, and keeps it open for syncfs. Where that is another device (a mount point, the
// target of a link), the end syncs everything instead. A device is its st_dev.
#pragma once

#include <cstdint>
#include <vector>

#include "services/unique_fd.h"

class ChangedDevices {
 public:
  // An entry of the current directory has been changed. Costs nothing for the device of the call
  // before.
  void note(uint64_t device) {
    if (devices.empty() || devices[latest].device != device)
      remember(device);
  }

  // Brings them all to the disk and forgets them. False with errno when one of them failed.
  bool sync();

 private:
  struct Device {
    uint64_t device;
    UniqueFd directory;  // on that device, or empty when none could be had
  };

  void remember(uint64_t device);

  std::vector<Device> devices;
  size_t latest = 0;
};
