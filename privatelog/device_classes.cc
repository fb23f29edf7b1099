#include "privatelog/device_classes.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

bool isMounted(uint64_t device) {
  std::ifstream file("/proc/self/mountinfo");
  for (std::string line; std::getline(file, line);) {
    unsigned mountMajor = 0;
    unsigned mountMinor = 0;
    if (sscanf(line.c_str(), "%*d %*d %u:%u", &mountMajor, &mountMinor) == 2 &&
        makedev(mountMajor, mountMinor) == device)
      return true;
  }
  return false;
}

}  // namespace

DeviceClass DeviceClasses::classOf(uint64_t device, const NotedFileSystem& noted) {
  if (noted.fsid == 0)
    return byNumber(device);
  const auto [entry, isNew] = byId.try_emplace(noted.fsid);
  Owner& owner = entry->second;
  if (isNew)
    owner.number = nextClass++;
  if (noted.sameBoot) {
    owner.device = device;
    owner.isKnown = true;
  }
  return owner.number;
}

DeviceClass DeviceClasses::byNumber(uint64_t device) {
  const auto [entry, isNew] = byDevice.try_emplace(device, nextClass);
  nextClass += isNew ? 1 : 0;
  return entry->second;
}

// Whether the device may stand for the class; the class is its own then.
bool DeviceClasses::claims(uint64_t device, Owner& owner) const {
  if (owner.isKnown && owner.device != device &&
      (met.contains(owner.device) || isMounted(owner.device)))
    return false;
  owner.device = device;
  owner.isKnown = true;
  return true;
}

std::span<const DeviceClass> DeviceClasses::find(uint64_t device, const FileSystemFacts& facts) {
  auto known = met.find(device);
  if (known == met.end()) {
    std::vector<DeviceClass> classes;
    if (facts.fsid != 0) {
      const auto [entry, isNew] = byId.try_emplace(facts.fsid);
      if (isNew)
        entry->second.number = nextClass++;
      if (claims(device, entry->second))
        classes.push_back(entry->second.number);
    }
    if (classes.empty() || byDevice.contains(device))
      classes.push_back(byNumber(device));
    known = met.emplace(device, std::move(classes)).first;
  }
  latestDevice = device;
  latestCount = known->second.size();
  std::copy(known->second.begin(), known->second.end(), latest.begin());
  return current();
}
