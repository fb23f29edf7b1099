#include "tests/faults/loop_disk.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/support/sandbox.h"

namespace {

constexpr const char* kLoopControl = "/dev/loop-control";
constexpr unsigned kMiscMajor = 10;
constexpr unsigned kLoopControlMinor = 237;
constexpr unsigned kLoopMajor = 7;
constexpr off_t kExt4Size = 32 << 20;
constexpr off_t kBtrfsSize = 128 << 20;  // it takes no less

// The file systems' common request to stop at once; not in the C library's headers.
constexpr unsigned long kShutdown = _IOR('X', 125, uint32_t);
constexpr uint32_t kWithoutFlushingTheJournal = 2;

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "loop disk: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

UniqueFd openFolder(const std::string& folder) {
  UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd)
    die(folder);
  return fd;
}

}  // namespace

bool LoopDisk::create(const std::string& image) {
  requireSandbox();
  const bool isExt4 = type == "ext4";
  const std::string maker = "/usr/sbin/mkfs." + type;
  if (!exists(maker)) {
    reason = "no " + maker;
    return false;
  }
  const UniqueFd file(open(image.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  if (!file || ftruncate(file.get(), isExt4 ? kExt4Size : kBtrfsSize) != 0)
    die(image);
  const RunResult made = runProgram({maker, "-q", isExt4 ? "-F" : "-f", image});
  if (made.status != 0) {
    reason = maker + ": " + made.err;
    return false;
  }
  if (attach(image))
    return true;
  reason = std::string("no loop device: ") + std::strerror(errno);
  return false;
}

bool LoopDisk::attach(const std::string& image) {
  if (!exists(kLoopControl) &&
      mknod(kLoopControl, S_IFCHR | 0600, makedev(kMiscMajor, kLoopControlMinor)) != 0)
    return false;
  const UniqueFd control(open(kLoopControl, O_RDWR | O_CLOEXEC));
  const UniqueFd file(open(image.c_str(), O_RDWR | O_CLOEXEC));
  if (!control || !file)
    return false;
  // Another program may take the free device first.
  for (int tries = 0; tries < 20; ++tries) {
    const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
    if (number < 0)
      return false;
    deviceName = "/dev/loop" + std::to_string(number);
    if (!exists(deviceName) && mknod(deviceName.c_str(), S_IFBLK | 0600,
                                     makedev(kLoopMajor, static_cast<unsigned>(number))) != 0)
      return false;
    device = UniqueFd(open(deviceName.c_str(), O_RDWR | O_CLOEXEC));
    loop_config config = {};
    config.fd = static_cast<uint32_t>(file.get());
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (device && ioctl(device.get(), LOOP_CONFIGURE, &config) == 0)
      return true;
    if (errno != EBUSY)
      return false;
  }
  return false;
}

void LoopDisk::mountAt(const std::string& folder) {
  requireSandbox();
  if (!mountPoint.empty() && umount(mountPoint.c_str()) != 0)
    die("umount " + mountPoint);
  if (mount(deviceName.c_str(), folder.c_str(), type.c_str(), 0, nullptr) != 0)
    die("mount " + deviceName + " on " + folder);
  mountPoint = folder;
}

void LoopDisk::remount() {
  mountAt(std::string(mountPoint));
}

void LoopDisk::flush() const {
  if (syncfs(openFolder(mountPoint).get()) != 0)
    die("syncfs " + mountPoint);
}

void LoopDisk::cutPower() const {
  uint32_t how = kWithoutFlushingTheJournal;
  if (ioctl(openFolder(mountPoint).get(), kShutdown, &how) != 0)
    die("shutdown of " + mountPoint);
}
