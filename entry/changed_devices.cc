#include "entry/changed_devices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

UniqueFd currentDirectoryOn(uint64_t device) {
  UniqueFd directory(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status = {};
  if (directory && (fstat(directory.get(), &status) != 0 || status.st_dev != device))
    directory.reset();
  return directory;
}

}  // namespace

void ChangedDevices::remember(uint64_t device) {
  const auto known = std::find_if(devices.begin(), devices.end(),
                                  [device](const Device& d) { return d.device == device; });
  latest = static_cast<size_t>(known - devices.begin());
  if (known == devices.end())
    devices.push_back({device, UniqueFd()});
  if (!devices[latest].directory)
    devices[latest].directory = currentDirectoryOn(device);
}

bool ChangedDevices::sync() {
  int error = 0;
  bool isComplete = true;
  for (const Device& device : devices) {
    if (!device.directory)
      isComplete = false;
    else if (syncfs(device.directory.get()) != 0)
      error = errno;
  }
  if (!isComplete)
    ::sync();
  devices.clear();
  latest = 0;
  errno = error;
  return error == 0;
}
