#include "privatelog/device_classes.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "entry/mount_table.h"

namespace {

// Whether a file system with this id is mounted as this device. The id is compared because device
// numbers are used again. On Btrfs entries have another device number than the mount, one for each
// subvolume, so there the mount point itself is looked at.
bool isMounted(uint64_t device, uint64_t fsid) {
  std::ifstream file("/proc/self/mountinfo");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  for (const Mount& mount : parseMounts(text)) {
    const bool isBtrfs = mount.type == "btrfs";
    if (mount.device != number && !isBtrfs)
      continue;
    struct stat status = {};
    struct statfs found = {};
    if (stat(mount.point.c_str(), &status) == 0 && (status.st_dev == device || !isBtrfs) &&
        statfs(mount.point.c_str(), &found) == 0 && fsidOf(found) == fsid)
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
  if (owner.recorded.contains(device))
    return owner.recorded[device];
  const bool isFirst = owner.recorded.empty();
  const bool isBeside = noted.sameBoot && owner.isKnown && isMounted(owner.device, noted.fsid) &&
                        isMounted(device, noted.fsid);
  owner.isShared = owner.isShared || !(isFirst || noted.sameBoot);
  if (noted.sameBoot && !isBeside) {
    owner.device = device;
    owner.isKnown = true;
  }
  return owner.recorded[device] = isBeside ? byNumber(device) : owner.number;
}

DeviceClass DeviceClasses::byNumber(uint64_t device) {
  const auto [entry, isNew] = byDevice.try_emplace(device, nextClass);
  nextClass += isNew ? 1 : 0;
  return entry->second;
}

// Whether the device may have the class of this id, which it then owns.
bool DeviceClasses::claims(uint64_t device, uint64_t fsid, Owner& owner) {
  if (owner.isKnown && owner.device != device && isMounted(owner.device, fsid))
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
      Owner& owner = entry->second;
      const bool isOwner = claims(device, facts.fsid, owner);
      if (isOwner || owner.isShared)
        classes.push_back(owner.number);
      if (!isOwner)
        classes.insert(classes.begin(), byNumber(device));
    }
    if (classes.empty() || (classes.size() == 1 && byDevice.contains(device)))
      classes.push_back(byNumber(device));
    known = met.emplace(device, std::move(classes)).first;
  }
  latestDevice = device;
  latestCount = known->second.size();
  std::copy(known->second.begin(), known->second.end(), latest.begin());
  return current();
}
