#include "tests/support/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "services/paths.h"
#include "services/unique_fd.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kBuildFolder = IDSHIFT_BINARY_DIR;
constexpr const char* kRecords = "/tmp/records.log";

// The new root is mounted over this directory, inside the private namespace only: unlike a fresh
// temporary directory it leaves nothing behind on the machine.
constexpr const char* kMountPoint = "/tmp";

constexpr const char* kSystemFolders[] = {"/usr", "/bin", "/sbin", "/lib", "/lib64", "/lib32"};
constexpr const char* kDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};

struct FreshFolder {
  const char* path;
  const char* options;
};
constexpr FreshFolder kFreshFolders[] = {
    {"/etc", "mode=0755"}, {"/var", "mode=0755"}, {"/tmp", "mode=1777"}, {"/trees", "mode=0755"}};

// Set once this process has its own root; inherited by forks.
bool entered = false;
struct stat sandboxRoot {};
UniqueFd buildFolderFd;  // reaches the build folder of the machine from inside

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "sandbox: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

// Every mount of this file comes through here, so that no failure goes unnoticed.
void mountOrDie(const char* source,
                const std::string& target,
                const char* type,
                unsigned long flags,
                const char* options = nullptr) {
  if (::mount(source, target.c_str(), type, flags, options) != 0)
    die("mount on " + target);
}

UniqueFd openPath(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!fd)
    die(path);
  return fd;
}

// Binds what the descriptor refers to, read-only: a device can still be written to, but its owner
// and mode, which are the machine's own, cannot be changed. A descriptor still reaches a source
// that a later mount covers, such as a build folder below kMountPoint.
void bindDescriptor(int fd, const std::string& target) {
  mountOrDie(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, nullptr, MS_BIND | MS_REC,
             nullptr);
  mountOrDie(nullptr, target, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY);
}

void addSystemFolder(const std::string& newRoot, const std::string& folder) {
  if (fs::is_symlink(folder)) {
    fs::create_symlink(fs::read_symlink(folder), newRoot + folder);
  } else if (fs::is_directory(folder)) {
    fs::create_directory(newRoot + folder);
    bindDescriptor(openPath(folder).get(), newRoot + folder);
  }
}

void addDevices(const std::string& newRoot) {
  const std::string dev = newRoot + "/dev";
  fs::create_directories(dev + "/shm");
  fs::permissions(dev + "/shm", fs::perms{01777});
  for (const char* name : kDevices) {
    const std::string target = dev + "/" + name;
    const UniqueFd file(::open(target.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    bindDescriptor(openPath(std::string("/dev/") + name).get(), target);
  }
  fs::create_symlink("/proc/self/fd", dev + "/fd");
  fs::create_symlink("/proc/self/fd/0", dev + "/stdin");
  fs::create_symlink("/proc/self/fd/1", dev + "/stdout");
  fs::create_symlink("/proc/self/fd/2", dev + "/stderr");
}

// Moves the process. False with errno when the kernel does not let it have a namespace.
bool enterSandbox() {
  if (::unshare(CLONE_NEWNS) != 0)
    return false;
  mountOrDie("none", "/", nullptr, MS_REC | MS_PRIVATE);
  buildFolderFd = openPath(kBuildFolder);
  mountOrDie("sandbox", kMountPoint, "tmpfs", MS_NOSUID, "mode=0755");
  const std::string newRoot = kMountPoint;
  for (const char* folder : kSystemFolders)
    addSystemFolder(newRoot, folder);
  fs::create_directory(newRoot + "/proc");
  mountOrDie("/proc", newRoot + "/proc", nullptr, MS_BIND | MS_REC);
  addDevices(newRoot);
  for (const char* folder : {"/root", "/run"})
    fs::create_directory(newRoot + folder);
  for (const FreshFolder& folder : kFreshFolders)
    fs::create_directory(newRoot + folder.path);
  if (::chroot(kMountPoint) != 0 || ::chdir("/") != 0 || ::stat("/", &sandboxRoot) != 0)
    die("chroot");
  entered = true;
  return true;
}

// Takes away every mount at or below `folder`, the newest first: tests mount there as well.
void detachMounts(const std::string& folder) {
  std::ifstream table("/proc/self/mountinfo");
  std::vector<std::string> targets;
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string id, parent, device, root, target;
    fields >> id >> parent >> device >> root >> target;
    if (target == folder || target.starts_with(folder + "/"))
      targets.push_back(target);
  }
  // A path with a blank is escaped in the table and missed here; it goes with the mount above it.
  for (auto target = targets.rbegin(); target != targets.rend(); ++target)
    ::umount2(target->c_str(), MNT_DETACH);
}

// New, empty file systems instead of removing files one by one: nothing is ever deleted by name,
// and a tree of any depth goes at once.
void renewFolders() {
  requireSandbox();
  if (::chdir("/") != 0)
    die("chdir");
  for (const FreshFolder& folder : kFreshFolders) {
    detachMounts(folder.path);
    mountOrDie("sandbox", folder.path, "tmpfs", 0, folder.options);
  }
  if (!exists(kBuildFolder)) {  // at first, and again when it lies below a folder just renewed
    fs::create_directories(kBuildFolder);
    bindDescriptor(buildFolderFd.get(), kBuildFolder);
  }
}

void writeMinimalFiles() {
  setPasswd("root:x:0:0:root:/root:/bin/sh\n");
  setGroup("root:x:0:\n");
  writeFile("/etc/nsswitch.conf", "passwd: files\ngroup: files\nshadow: files\n");
  fs::create_directory("/etc/orvantadc");
  fs::create_directory("/var/orvantadc");
}

}  // namespace

void requireSandbox() {
  struct stat root {};
  if (entered && ::stat("/", &root) == 0 && root.st_dev == sandboxRoot.st_dev &&
      root.st_ino == sandboxRoot.st_ino)
    return;
  std::fprintf(stderr, "sandbox: refused: this process has no root directory of its own\n");
  std::abort();
}

void writeFile(const std::string& path, const std::string& text, mode_t mode) {
  requireSandbox();
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty())
    fs::create_directories(parent);
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  if (!stream || ::chmod(path.c_str(), mode) != 0)
    die("cannot write " + path);
}

std::string readFile(const std::string& path) {
  const std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  if (stream.is_open())
    text << stream.rdbuf();
  else
    ADD_FAILURE() << "cannot read " << path;
  return text.str();
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

std::string ownerOf(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0)
    return "gone";
  return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
}

void setPasswd(const std::string& text) {
  writeFile(paths::kPasswd, text);
}

void setGroup(const std::string& text) {
  writeFile(paths::kGroup, text);
}

void addSetting(const std::string& line) {
  const std::string before = exists(paths::kSettings) ? readFile(paths::kSettings) : "";
  writeFile(paths::kSettings, before + line + "\n");
}

void joinDomain(const std::string& domain) {
  addSetting("domain.name = " + domain);
}

void recordLog() {
  addSetting("log.file.level = TRACE");
  addSetting(std::string("log.file.path = ") + kRecords);
}

std::vector<std::string> readLogRecords() {
  return linesOf(exists(kRecords) ? readFile(kRecords) : "");
}

void SandboxTest::SetUp() {
  if (::geteuid() != 0)
    GTEST_SKIP() << "needs root, for a mount namespace of its own and for changing owners";
  if (!entered && !enterSandbox())
    GTEST_SKIP() << "the kernel refuses a mount namespace: " << std::strerror(errno);
  ::umask(022);
  renewFolders();
  writeMinimalFiles();
  arrange();
}

void SandboxTest::TearDown() {
  // A test of the walk may end anywhere.
  if (entered && ::chdir("/") != 0)
    die("chdir");
}
