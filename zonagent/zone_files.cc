#include "zonagent/zone_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "services/unique_fd.h"
#include "zonagent/agent_log.h"
#include "zonagent/trusted_path.h"

namespace zonagent {
namespace {

constexpr std::array<const char*, 3> kFileNames = {"passwd", "group", "aliases"};
constexpr size_t kAliases = 2;
constexpr std::chrono::seconds kRest{10};
constexpr std::chrono::milliseconds kPause{100};

bool same(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

FileStamp stampOf(const struct stat& status) {
  return {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw AgentError(path + ": " + why);
}

struct stat statusOf(const UniqueFd& fd, const std::string& path) {
  struct stat status = {};
  if (fstat(fd.get(), &status) != 0)
    fail(path, strerror(errno));
  return status;
}

// idshift, run by root, acts on the zone, so root alone may be able to write it.
void requireRoots(const std::string& path) {
  if (geteuid() != 0)
    return;
  if (const std::string open = openToOthers(path); !open.empty())
    fail(path, "others than root can change " + open);
}

// The text of a file, in pieces. It is empty if the file is absent and may be absent.
class FileText {
 public:
  FileText(const std::string& filePath, bool mayBeAbsent) : path(filePath) {
    requireRoots(path);
    // Without O_NONBLOCK the agent would wait for ever to open a FIFO.
    fd.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd && errno == ENOENT && mayBeAbsent)
      return;
    if (!fd)
      fail(path, strerror(errno));
    before = statusOf(fd, path);
    if (!S_ISREG(before.st_mode))
      fail(path, "not a regular file");
    if ((before.st_mode & S_IWOTH) != 0)
      fail(path, "everybody may write to the file");
  }
  std::string_view next() {
    ssize_t got = 0;
    do
      got = fd ? ::read(fd.get(), chunk.data(), chunk.size()) : 0;
    while (got < 0 && errno == EINTR);
    if (got < 0)
      fail(path, strerror(errno));
    return {chunk.data(), static_cast<size_t>(got)};
  }
  void requireUnchanged() const {
    if (fd && !(stampOf(before) == stampOf(statusOf(fd, path))))
      fail(path, "the file changed while the agent read it");
  }

 private:
  const std::string& path;
  UniqueFd fd;
  struct stat before = {};
  std::array<char, size_t{64}* 1024> chunk = {};
};

// Passes the whole file to `read(pieces, path)`.
template <class Read>
void readFile(const std::string& path, bool mayBeAbsent, const Read& read) {
  FileText text(path, mayBeAbsent);
  read([&text] { return text.next(); }, path);
  text.requireUnchanged();
}

}  // namespace

bool FileStamp::operator==(const FileStamp& other) const {
  return present == other.present && device == other.device && inode == other.inode &&
         size == other.size && same(modified, other.modified) && same(changed, other.changed);
}

std::chrono::nanoseconds restOf(const ZoneVersion& good,
                                const ZoneVersion& next,
                                const timespec& now) {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  nanoseconds rest{0};
  for (size_t i = 0; i < next.stamps.size(); ++i) {
    const timespec& modified = next.stamps[i].modified;
    const nanoseconds age =
        seconds(now.tv_sec - modified.tv_sec) + nanoseconds(now.tv_nsec - modified.tv_nsec);
    const bool lost = next.accounts[i] < good.accounts[i];
    if (lost && next.stamps[i].present && age >= nanoseconds(0))
      rest = std::max(rest, kRest - age);
  }
  return rest;
}

ZoneFiles::ZoneFiles(std::string directoryPath) : directory(std::move(directoryPath)) {
  inForce = seen = look();
  zone = read();
}

Answer ZoneFiles::find(const orvs::wire::Question& question) {
  follow();
  return zone.find(question);
}

// Brings the zone up to date. Unchanged files cost three stat() calls; a version that has waited
// long enough is taken without being read again.
void ZoneFiles::follow() {
  const Stamps current = look();
  const Clock::time_point now = Clock::now();
  if (current == seen) {
    if (resting && now >= resting->until)
      take(std::move(resting->zone), seen);
  } else if (now >= lookAgain) {
    consider(current);
  }
}

// Reads changed files and takes them, lets them wait, or refuses them.
void ZoneFiles::consider(const Stamps& stamps) {
  seen = stamps;
  resting.reset();
  lookAgain = Clock::now() + kPause;
  try {
    ZoneTable next = read();
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto rest = restOf({inForce, zone.counts()}, {stamps, next.counts()}, now);
    if (rest.count() <= 0) {
      take(std::move(next), stamps);
      return;
    }
    AGENT_SAY(
        "zone_files",
        "zonagent: %s: %zu users (was %zu), %zu groups: accounts are missing and the file may be "
        "half written; it is used when it is 10 s old, or on SIGHUP",
        directory.c_str(), next.userCount(), zone.userCount(), next.groupCount());
    resting = {std::move(next), Clock::now() + rest};
  } catch (const AgentError& error) {
    refuse(error);
  }
}

void ZoneFiles::reload() {
  const Stamps current = look();
  try {
    take(read(), current);
  } catch (const AgentError& error) {
    seen = current;
    resting.reset();
    refuse(error);
  }
}

void ZoneFiles::take(ZoneTable next, const Stamps& stamps) {
  AGENT_SAY("zone_files", "zonagent: %s: %zu users (was %zu), %zu groups", directory.c_str(),
            next.userCount(), zone.userCount(), next.groupCount());
  zone = std::move(next);
  inForce = seen = stamps;
  resting.reset();
  lookAgain = {};
}

void ZoneFiles::refuse(const AgentError& error) {
  AGENT_SAY("zone_files", "zonagent: zone refused, the last good zone stays in force: %s",
            error.what());
}

ZoneTable ZoneFiles::read() const {
  requireRoots(directory);
  ZoneTable table;
  readFile(pathOf(0), false,
           [&](const Pieces& text, const std::string& path) { table.readUsers(text, path, zone); });
  readFile(pathOf(1), false, [&](const Pieces& text, const std::string& path) {
    table.readGroups(text, path, zone);
  });
  readFile(pathOf(kAliases), true,
           [&](const Pieces& text, const std::string& path) { table.readAliases(text, path); });
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

std::string ZoneFiles::summary() const {
  return std::to_string(zone.userCount()) + " users, " + std::to_string(zone.groupCount()) +
         " groups";
}

}  // namespace zonagent
