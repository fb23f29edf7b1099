#include "walk/mounts.h"

#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "entry/mount_table.h"
#include "services/say.h"

namespace {

constexpr uint64_t kAutofsType = 0x187;

std::optional<uint64_t> fileSystemType(const char* name) {
  struct statfs fileSystem = {};
  if (statfs(name, &fileSystem) != 0)
    return std::nullopt;
  return static_cast<uint64_t>(fileSystem.f_type);  // f_type is signed
}

// Reads the status through a pin when one is wanted, else by name. When the pin fails the look by
// name leaves the errno.
bool lookWith(const char* name, EntryStatus& status, PinnedEntry* pinned) {
  if (pinned == nullptr || !pinned->pin(name, false))
    return lookAt(name, false, status);
  status = pinned->status();
  return true;
}

// The st_dev of every mount of a remote kind.
std::set<uint64_t> remoteDevicesOf(const char* mountInfo) {
  std::ifstream file(mountInfo);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  std::set<uint64_t> devices;
  for (const Mount& mount : parseMounts(text)) {
    const std::string_view device = mount.device;
    const size_t colon = device.find(':');
    unsigned major = 0;
    unsigned minor = 0;
    if (!mount.isRemote() || colon == device.npos)
      continue;
    std::from_chars(device.data(), device.data() + colon, major);
    std::from_chars(device.data() + colon + 1, device.data() + device.size(), minor);
    devices.insert(makedev(major, minor));
  }
  return devices;
}

}  // namespace

bool isOnRemote(const char* name) {
  const std::optional<uint64_t> type = fileSystemType(name);
  return type && isRemoteType(*type);
}

EntryProbe::EntryProbe(bool askRemote, bool byMountTable) : enabled(askRemote) {
  if (enabled && byMountTable)
    remoteDevices = remoteDevicesOf("/proc/self/mountinfo");
}

bool EntryProbe::isTargetRemote(const char* name) const {
  EntryStatus target;
  return isOnRemote(name) || (!remoteDevices.empty() && lookAt(name, true, target) &&
                              remoteDevices.contains(target.id.device));
}

EntryLook EntryProbe::look(const char* name, EntryStatus& status, PinnedEntry* pinned) {
  if (!lookWith(name, status, pinned)) {
    const int lstatErrno = errno;
    if (enabled && isOnRemote(name))
      return EntryLook::Remote;
    errno = lstatErrno;
    return EntryLook::Unreadable;
  }
  if (!enabled)
    return EntryLook::Take;
  if (!remoteDevices.empty() && remoteDevices.contains(status.id.device))
    return EntryLook::Remote;
  if (S_ISLNK(status.mode))
    return EntryLook::Link;
  return isKnownLocal(status) ? EntryLook::Take : askAnew(name, status);
}

bool EntryProbe::isKnownLocal(const EntryStatus& status) {
  if (status.id.device == lastLocal)
    return true;
  const auto known = devices.find(status.id.device);
  if (known == devices.end())
    return false;
  if (known->second == Device::Automounter)
    return !S_ISDIR(status.mode);
  lastLocal = status.id.device;
  return true;
}

EntryLook EntryProbe::askAnew(const char* name, EntryStatus& status) {
  const uint64_t device = status.id.device;
  const std::optional<uint64_t> type = fileSystemType(name);
  if (!type)
    return EntryLook::Take;
  // statfs() may have triggered a mount that now covers the directory.
  if (S_ISDIR(status.mode) && !lookAt(name, false, status))
    return isRemoteType(*type) ? EntryLook::Remote : EntryLook::Unreadable;
  if (status.id.device != device || *type == kAutofsType)
    devices[device] = Device::Automounter;
  if (isRemoteType(*type))
    return EntryLook::Remote;
  devices.try_emplace(status.id.device, Device::Local);
  return EntryLook::Take;
}

bool checkMountCross(const char* path,
                     const EntryStatus& status,
                     uint64_t parentDevice,
                     const CommandOptions& options,
                     const orvs::LoggerPtr& logger) {
  if (parentDevice == 0 || parentDevice == status.id.device)
    return false;
  if (options.xdev)
    return true;
  TELL(stderrIf(options.traceSkips && options.traceExtra), "Crossing mount point: %s", path);
  return false;
}
