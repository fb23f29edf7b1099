#include "tests/support/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "services/paths.h"
#include "services/unique_fd.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kRecords = "/tmp/records.log";

constexpr const char* kBuildFolder = "/build";
constexpr const char* kFreshFolders[] = {"/etc", "/var", "/tmp", "/trees"};

// Set once this process has its own root; inherited by forks.
bool entered = false;

void mountOrDie(const char* source,
                const std::string& target,
                const char* type,
                unsigned long flags,
                const char* options = nullptr) {
  orDie(::mount(source, target.c_str(), type, flags, options) == 0, "mount on " + target);
}

// A device on a read-only mount can still be written to, but its owner and mode cannot be changed.
void bindReadOnly(const std::string& source, const std::string& target) {
  mountOrDie(source.c_str(), target, nullptr, MS_BIND | MS_REC);
  mountOrDie(nullptr, target, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY);
}

void addSystemFolder(const std::string& newRoot, const std::string& folder) {
  if (fs::is_symlink(folder)) {
    fs::create_symlink(fs::read_symlink(folder), newRoot + folder);
  } else if (fs::is_directory(folder)) {
    fs::create_directory(newRoot + folder);
    bindReadOnly(folder, newRoot + folder);
  }
}

void addDevices(const std::string& newRoot) {
  fs::create_directory(newRoot + "/dev");
  for (const std::string name : {"/dev/null", "/dev/zero", "/dev/random", "/dev/urandom"}) {
    const std::ofstream mountPoint(newRoot + name);
    bindReadOnly(name, newRoot + name);
  }
  fs::create_symlink("/proc/self/fd", newRoot + "/dev/fd");
  fs::create_symlink("/proc/self/fd/1", newRoot + "/dev/stdout");
}

// Moves the process into the sandbox. False, with errno, when the kernel refuses a mount namespace.
bool enterSandbox() {
  if (::unshare(CLONE_NEWNS) != 0)
    return false;
  mountOrDie("none", "/", nullptr, MS_REC | MS_PRIVATE);
  // Held by a descriptor, because the folder may lie below /tmp, which the new root covers.
  const UniqueFd buildFolder(::open(IDSHIFT_BINARY_DIR, O_PATH | O_CLOEXEC));
  ::umask(022);
  // The new root covers /tmp, in the private namespace only. A new temporary directory would have
  // to be removed afterwards.
  const std::string newRoot = "/tmp";
  mountOrDie("sandbox", newRoot, "tmpfs", MS_NOSUID, "mode=0755");
  for (const char* folder : {"/usr", "/bin", "/sbin", "/lib", "/lib64", "/lib32"})
    addSystemFolder(newRoot, folder);
  for (const char* folder : {"/proc", "/root", "/run", kBuildFolder})
    fs::create_directory(newRoot + folder);
  mountOrDie("/proc", newRoot + "/proc", nullptr, MS_BIND | MS_REC);
  bindReadOnly("/proc/self/fd/" + std::to_string(buildFolder.get()), newRoot + kBuildFolder);
  addDevices(newRoot);
  for (const char* folder : kFreshFolders)
    fs::create_directory(newRoot + folder);
  orDie(::chroot(newRoot.c_str()) == 0 && ::chdir("/") == 0, "chroot");
  entered = true;
  return true;
}

// Mounts new, empty file systems and puts in what every machine has. Files of the last test are not
// removed one by one: a tree of any depth goes at once, and no mistake can delete other files.
void renewFolders() {
  orDie(::chdir("/") == 0, "chdir");
  for (const char* folder : kFreshFolders) {
    while (::umount2(folder, MNT_DETACH) == 0) {  // also detaches what is mounted below
    }
    mountOrDie("sandbox", folder, "tmpfs", 0, "mode=0755");
  }
  fs::permissions("/tmp", fs::perms{01777});
  setPasswd("root:x:0:0:root:/root:/bin/sh\n");
  setGroup("root:x:0:\n");
  writeFile("/etc/nsswitch.conf", "passwd: files\ngroup: files\nshadow: files\n");
  for (const char* folder : {"/etc/orvantadc", "/var/orvantadc"})
    fs::create_directory(folder);
}

}  // namespace

std::string binaryPath(const std::string& name) {
  return std::string(kBuildFolder) + "/" + name;
}

void requireSandbox() {
  orDie(entered, "refused: this process has no root directory of its own");
}

void writeFile(const std::string& path, const std::string& text, mode_t mode) {
  requireSandbox();
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty())
    fs::create_directories(parent);
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  orDie(stream && ::chmod(path.c_str(), mode) == 0, "cannot write " + path);
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
  // Every test can thus be run with helper threads that read ahead.
  if (const char* helpers = getenv("IDSHIFT_READ_AHEAD"))
    addSetting(std::string("idshift.read.ahead = ") + helpers);
}

void recordLog() {
  addSetting("log.file.level = TRACE");
  addSetting(std::string("log.file.path = ") + kRecords);
}

std::vector<std::string> readLogRecords() {
  return linesOf(exists(kRecords) ? readFile(kRecords) : "");
}

void SandboxTest::SetUp() {
  if (!IDSHIFT_ROOT_TESTS)
    GTEST_SKIP() << "this build is to run no test that needs root";
  if (::geteuid() != 0)
    GTEST_SKIP() << "needs root, for a mount namespace of its own and for changing owners";
  if (!entered && !enterSandbox())
    GTEST_SKIP() << "the kernel refuses a mount namespace: " << std::strerror(errno);
  ::umask(022);
  renewFolders();
  arrange();
}
