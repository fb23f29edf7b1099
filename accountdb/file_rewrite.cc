#include "accountdb/file_rewrite.h"

#include <fcntl.h>
#include <unistd.h>
#include <utime.h>

#include <array>
#include <cerrno>

#include "accountdb/file_attributes.h"
#include "services/path_text.h"
#include "services/unique_fd.h"

namespace orvs {
namespace {

// The most that an account file may allow: reading for everybody, writing for owner and group.
constexpr mode_t kReplacementModeMask = 0664;

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : oldMask(::umask(mask)) {}
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;
  ~ScopedUmask() { ::umask(oldMask); }

 private:
  mode_t oldMask;
};

UniqueFd openForWriting(const std::string& name, int moreFlags, mode_t mask) {
  const ScopedUmask guard(mask);
  return UniqueFd(::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | moreFlags, 0666));
}

// Closing can fail: some file systems report a full disk only then.
bool closeNow(UniqueFd& file) {
  return ::close(file.release()) == 0;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// An error ends the copy and is ignored. An update with a partial backup is better than no update.
void copyBytes(int from, int to) {
  std::array<char, 16384> buffer = {};
  for (;;) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0 || !writeAll(to, {buffer.data(), static_cast<std::size_t>(count)}))
      return;
  }
}

bool reserveRoom(int fd, std::size_t size) {
  if (size == 0)
    return true;
  int error = EINTR;
  while (error == EINTR)
    error = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
  return error == 0;
}

bool takeAttributes(int fd, const std::string& model) {
  const UniqueFd source(::open(model.c_str(), O_RDONLY | O_CLOEXEC));
  return source && copyAttributes(source.get(), fd);
}

// Makes the empty file without any permission, then gives it owner, attributes and mode, so that
// nobody can open it in between. The mode comes last, because setting an access control list
// changes it.
bool createReplacement(const std::string& temporary, const ReplacementModel& model) {
  UniqueFd file = openForWriting(temporary, O_NOFOLLOW, 0777);
  if (!file)
    return false;
  // isWhole() compares owner and mode at the end, so failures here need no test.
  const struct stat& info = model.info;
  [[maybe_unused]] const int ownerSet = ::fchown(file.get(), info.st_uid, info.st_gid);
  if (model.attributesOf != nullptr && !takeAttributes(file.get(), *model.attributesOf))
    return false;
  [[maybe_unused]] const int modeSet = ::fchmod(file.get(), info.st_mode & kReplacementModeMask);
  return closeNow(file);
}

bool fillReplacement(const std::string& temporary, std::string_view text) {
  UniqueFd file(::open(temporary.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
  if (!file || !reserveRoom(file.get(), text.size()) || !writeAll(file.get(), text))
    return false;
  return ::fsync(file.get()) == 0 && closeNow(file);
}

bool isWhole(const std::string& temporary, const struct stat& model, std::size_t size) {
  struct stat info = {};
  return ::lstat(temporary.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         info.st_size == static_cast<off_t>(size) && info.st_uid == model.st_uid &&
         info.st_gid == model.st_gid &&
         (info.st_mode & ALLPERMS) == (model.st_mode & kReplacementModeMask);
}

}  // namespace

bool makeBackup(const std::string& path, const std::string& backup) {
  struct stat info = {};
  if (::stat(path.c_str(), &info) != 0)
    return false;
  const UniqueFd source(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!source)
    return false;
  UniqueFd copy = openForWriting(backup, 0, 077);
  if (!copy)
    return false;
  copyBytes(source.get(), copy.get());
  copy.reset();
  const struct utimbuf times = {info.st_atime, info.st_mtime};
  static_cast<void>(::utime(backup.c_str(), &times));  // with other times it is still a backup
  return true;
}

bool writeReplacement(const std::string& temporary,
                      const ReplacementModel& model,
                      std::string_view text) {
  return createReplacement(temporary, model) && fillReplacement(temporary, text) &&
         isWhole(temporary, model.info, text.size());
}

void syncDirectoryOf(const std::string& path) {
  std::string directory = path;
  trimLastComponent(directory);
  if (directory == path)  // no slash: the file is in the current directory
    directory = ".";
  const UniqueFd handle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle)
    ::fsync(handle.get());
}

}  // namespace orvs
