#include "entry/file_systems.h"

#include <linux/magic.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr uint64_t kLustreMagic = 0x0bd00bd0;
constexpr uint64_t kGfs2Magic = 0x01161970;

// File systems on which a server or a user chooses inode numbers and birth times (ntfs-3g is one of
// FUSE), and those whose inode numbers last only as long as the inode is in memory.
constexpr std::array<uint64_t, 14> kWithoutIdentity = {
    FUSE_SUPER_MAGIC, NFS_SUPER_MAGIC, SMB_SUPER_MAGIC,   CIFS_SUPER_MAGIC, SMB2_SUPER_MAGIC,
    CEPH_SUPER_MAGIC, AFS_SUPER_MAGIC, AFS_FS_MAGIC,      V9FS_MAGIC,       CODA_SUPER_MAGIC,
    kLustreMagic,     kGfs2Magic,      MSDOS_SUPER_MAGIC, EXFAT_SUPER_MAGIC};

// False with errno.
bool ask(int descriptor, FileSystemFacts& facts) {
  struct statfs found = {};
  if (fstatfs(descriptor, &found) != 0)
    return false;
  const uint64_t magic = static_cast<uint32_t>(found.f_type);  // f_type is signed
  facts.type = magic;
  facts.fsid = fsidOf(found);
  facts.keepsBirth =
      std::find(kWithoutIdentity.begin(), kWithoutIdentity.end(), magic) == kWithoutIdentity.end();
  facts.copiesUp = magic == OVERLAYFS_SUPER_MAGIC;
  facts.isFuse = magic == FUSE_SUPER_MAGIC;
  facts.isReadOnly = (found.f_flags & ST_RDONLY) != 0;
  return true;
}

}  // namespace

uint64_t fsidOf(const struct statfs& found) {
  static_assert(sizeof found.f_fsid == sizeof(uint64_t));
  uint64_t number = 0;
  memcpy(&number, &found.f_fsid, sizeof number);
  return number;
}

const FileSystemFacts& FileSystems::of(int descriptor, uint64_t device) {
  if (const auto found = known.find(device); found != known.end())
    return found->second;
  static const FileSystemFacts kNothing;
  FileSystemFacts facts;
  return ask(descriptor, facts) ? remember(device, facts) : kNothing;
}

const FileSystemFacts& FileSystems::find(uint64_t device, const char* name, bool followed) {
  static const FileSystemFacts kNothing;
  if (const auto found = known.find(device); found != known.end()) {
    latestDevice = device;
    latest = &found->second;
    return *latest;
  }
  PinnedEntry entry;
  if (!entry.pin(name, followed) || entry.status().id.device != device)
    return kNothing;
  return of(entry.descriptor(), device);
}

const FileSystemFacts& FileSystems::remember(uint64_t device, const FileSystemFacts& facts) {
  const auto entry = known.emplace(device, facts).first;
  latestDevice = device;
  latest = &entry->second;
  return entry->second;
}
