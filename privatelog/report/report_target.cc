#include "privatelog/report/report_target.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "entry/pinned_path.h"
#include "services/paths.h"

namespace {

constexpr int kOpenFlags = O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr mode_t kNewFileMode = 0666;  // reduced by the umask

// Opens the pinned inode for writing: by its name if that still leads to it, else through the
// descriptor.
UniqueFd reopen(const PinnedPath& pinned) {
  struct stat status {};
  UniqueFd file(openat(pinned.directory.get(), pinned.lastName.c_str(), kOpenFlags | O_NOFOLLOW));
  if (file && fstat(file.get(), &status) == 0 && idOf(status) == pinned.status.id)
    return file;
  const std::string name = "/proc/self/fd/" + std::to_string(pinned.object.get());
  return UniqueFd(open(name.c_str(), kOpenFlags));
}

// Whether a pipe has a name. One without, reached through /dev/stdout, is the caller's own and is
// accepted.
bool isNamedPipe(int file, const struct stat& status) {
  if (!S_ISFIFO(status.st_mode))
    return false;
  struct statfs fileSystem {};
  return fstatfs(file, &fileSystem) != 0 || fileSystem.f_type != PIPEFS_MAGIC;
}

// Whether somebody else may have put there the file, or another name of a file of root's.
bool mayBeTrap(const PinnedPath& pinned) {
  struct stat directory {};
  if (!S_ISREG(pinned.status.mode) || !pinned.directory ||
      fstat(pinned.directory.get(), &directory) != 0)
    return false;
  return mayBePlanted(directory, pinned.status.owner.uid) ||
         (pinned.status.links > 1 && othersMayWrite(directory));
}

UniqueFd openPinned(const PinnedPath& pinned) {
  if (pinned.object)
    return mayBeTrap(pinned) ? UniqueFd() : reopen(pinned);
  if (pinned.error != ENOENT || !pinned.directory)
    return {};
  return UniqueFd(openat(pinned.directory.get(), pinned.lastName.c_str(),
                         kOpenFlags | O_CREAT | O_EXCL | O_NOFOLLOW, kNewFileMode));
}

}  // namespace

ReportTarget openReportTarget(const std::string& fileName, std::span<const OwnFile> ownFiles) {
  ReportTarget target;
  UniqueFd file = openPinned(pinPath(fileName, LastLink::Follow, ForeignLinks::Refuse));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || isNamedPipe(file.get(), status))
    return target;
  for (const OwnFile& own : ownFiles) {
    if (idOf(status) == own.id)
      target.ownPath = own.path;
  }
  if (target.ownPath != nullptr || (S_ISREG(status.st_mode) && ftruncate(file.get(), 0) != 0))
    return target;
  // From here on writes may block: on a terminal, or on a pipe with a reader.
  if (fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK) == 0)
    target.file = std::move(file);
  return target;
}

std::vector<OwnFile> ownFiles() {
  std::vector<OwnFile> files;
  for (const char* path : {paths::kPrivateLog, paths::kPrivateLogIndex, paths::kRunLock}) {
    struct stat status = {};
    if (stat(path, &status) == 0)
      files.push_back({path, idOf(status)});
  }
  return files;
}

ReportPlace findReportPlace(const std::string& fileName) {
  const auto refuse = [](int error) {
    errno = error;
    return ReportPlace();
  };
  PinnedPath pinned = pinPath(fileName, LastLink::Follow, ForeignLinks::Refuse);
  if ((!pinned.object && pinned.error != ENOENT) || !pinned.directory)
    return refuse(pinned.error != 0 ? pinned.error : EPERM);
  ReportPlace place;
  if (pinned.object) {
    if (!S_ISREG(pinned.status.mode))
      return refuse(S_ISDIR(pinned.status.mode) ? EISDIR : EINVAL);
    for (const OwnFile& own : ownFiles()) {
      if (pinned.status.id == own.id)
        return refuse(EPERM);
    }
    if (mayBeTrap(pinned))
      return refuse(EPERM);
    place.old = pinned.status;
  }
  place.directory = std::move(pinned.directory);
  place.name = std::move(pinned.lastName);
  return place;
}
