#include "zonagent/zone_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "services/unique_fd.h"
#include "zonagent/agent_log.h"

namespace zonagent {
namespace {

constexpr std::array<const char*, 3> kFileNames = {"passwd", "group", "aliases"};
constexpr size_t kAliases = 2;

bool same(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

FileStamp stampOf(const struct stat& status) {
  return {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw AgentError(path + ": " + why);
}

struct stat statusOf(const UniqueFd& fd, const std::string& path) {
  struct stat status = {};
  if (fstat(fd.get(), &status) != 0)
    refuse(path, strerror(errno));
  return status;
}

// The whole file, empty when it is absent and may be.
std::string readAll(const std::string& path, bool mayBeAbsent) {
  // Without O_NONBLOCK a FIFO of that name would hold the agent up for ever.
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd && errno == ENOENT && mayBeAbsent)
    return "";
  if (!fd)
    refuse(path, strerror(errno));
  const struct stat before = statusOf(fd, path);
  if (!S_ISREG(before.st_mode))
    refuse(path, "it is not a regular file");
  if ((before.st_mode & S_IWOTH) != 0)
    refuse(path, "everybody may write to it");
  std::string text;
  char chunk[64 * 1024];
  for (;;) {
    const ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0)
      refuse(path, strerror(errno));
    if (got == 0)
      break;
    text.append(chunk, static_cast<size_t>(got));
  }
  if (!(stampOf(before) == stampOf(statusOf(fd, path))))
    refuse(path, "it changed while it was read");
  return text;
}

}  // namespace

bool FileStamp::operator==(const FileStamp& other) const {
  return present == other.present && device == other.device && inode == other.inode &&
         size == other.size && same(modified, other.modified) && same(changed, other.changed);
}

bool beingRewritten(const FileStamp& good, const FileStamp& current, const timespec& now) {
  const bool cutDown = good.present && current.present && good.device == current.device &&
                       good.inode == current.inode && current.size < good.size;
  if (!cutDown)
    return false;
  const long long age = (now.tv_sec - current.modified.tv_sec) * 1'000'000'000LL +
                        (now.tv_nsec - current.modified.tv_nsec);
  return age >= 0 && age < 1'000'000'000LL;
}

ZoneFiles::ZoneFiles(std::string directoryPath) : directory(std::move(directoryPath)) {
  inForce = seen = look();
  zone = read();
}

Answer ZoneFiles::find(const orvs::wire::Question& question) {
  const Stamps current = look();
  if (!(current == seen)) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    bool unsettled = false;
    for (size_t i = 0; i < current.size(); ++i)
      unsettled = unsettled || beingRewritten(inForce[i], current[i], now);
    if (!unsettled)
      readOrKeep(current);
  }
  return zone.find(question);
}

void ZoneFiles::reload() {
  readOrKeep(look());
}

void ZoneFiles::readOrKeep(const Stamps& stamps) {
  seen = stamps;
  try {
    zone = read();
    inForce = stamps;
  } catch (const AgentError& error) {
    TELL("zone_files", "zonagent: zone refused, the last good one stays in force: %s",
         error.what());
  }
}

ZoneTable ZoneFiles::read() const {
  ZoneTable table;
  table.readUsers(readAll(pathOf(0), false), pathOf(0));
  table.readGroups(readAll(pathOf(1), false), pathOf(1));
  table.readAliases(readAll(pathOf(kAliases), true), pathOf(kAliases));
  return table;
}

std::string ZoneFiles::pathOf(size_t file) const {
  return directory + "/" + kFileNames[file];
}

ZoneFiles::Stamps ZoneFiles::look() const {
  Stamps stamps;
  for (size_t i = 0; i < stamps.size(); ++i) {
    struct stat status = {};
    if (stat(pathOf(i).c_str(), &status) == 0)
      stamps[i] = stampOf(status);
  }
  return stamps;
}

std::string ZoneFiles::sources() const {
  std::string text = "file: " + pathOf(0) + ", " + std::to_string(zone.userCount()) + " user(s)\n";
  text += "file: " + pathOf(1) + ", " + std::to_string(zone.groupCount()) + " group(s)\n";
  if (inForce[kAliases].present)
    text += "file: " + pathOf(kAliases) + "\n";
  return text;
}

}  // namespace zonagent
