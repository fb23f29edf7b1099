#include "tests/support/loop_disk.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdint>

#include "tests/support/sandbox.h"

namespace {

constexpr const char* kLoopSetup = "/usr/sbin/losetup";
constexpr off_t kSize = 128 << 20;  // the least that btrfs accepts

// The ioctl that ext4, XFS and btrfs share to stop at once. The C library's headers lack it.
constexpr unsigned long kShutdown = _IOR('X', 125, uint32_t);
constexpr uint32_t kWithoutFlushingTheJournal = 2;

// Makes the devices that the sandbox lacks; those that exist already are kept.
void makeLoopDevices() {
  mknod("/dev/loop-control", S_IFCHR | 0600, makedev(10, 237));
  for (unsigned number = 0; number < 64; ++number)
    mknod(("/dev/loop" + std::to_string(number)).c_str(), S_IFBLK | 0600, makedev(7, number));
}

}  // namespace

std::string LoopDisk::create(const std::string& image,
                             const std::string& fileSystem,
                             const std::vector<std::string>& options) {
  requireSandbox();
  type = fileSystem;
  writeFile(image, "", 0600);
  orDie(truncate(image.c_str(), kSize) == 0, image);
  const std::string maker = "/usr/sbin/mkfs." + type;
  std::vector<std::string> command = {maker, "-q", type == "ext4" ? "-F" : "-f"};
  command.insert(command.end(), options.begin(), options.end());
  command.push_back(image);
  const RunResult made = runProgram(command);
  if (made.status != 0)
    return maker + ": " + made.err;
  makeLoopDevices();
  const RunResult attached = runProgram({kLoopSetup, "--find", "--show", image});
  if (attached.status != 0)
    return "no loop device: " + attached.err;
  deviceName = linesOf(attached.out).front();
  device.reset(open(deviceName.c_str(), O_RDWR | O_CLOEXEC));
  runProgram({kLoopSetup, "--detach", deviceName});  // takes effect when `device` is closed
  orDie(static_cast<bool>(device), deviceName);
  return {};
}

void LoopDisk::unmount() {
  orDie(mountPoint.empty() || umount(mountPoint.c_str()) == 0, "umount " + mountPoint);
  mountPoint.clear();
}

void LoopDisk::mountAt(const std::string& folder) {
  requireSandbox();
  unmount();
  orDie(mount(deviceName.c_str(), folder.c_str(), type.c_str(), 0, nullptr) == 0, folder);
  mountPoint = folder;
}

UniqueFd LoopDisk::openTop() const {
  UniqueFd top(open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  orDie(static_cast<bool>(top), mountPoint);
  return top;
}

void LoopDisk::flush() const {
  orDie(syncfs(openTop().get()) == 0, "syncfs " + mountPoint);
}

void LoopDisk::cutPower() const {
  uint32_t how = kWithoutFlushingTheJournal;
  orDie(ioctl(openTop().get(), kShutdown, &how) == 0, "shutdown of " + mountPoint);
}
