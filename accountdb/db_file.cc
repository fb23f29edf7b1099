#include "accountdb/db_file.h"

#include <fcntl.h>
#include <shadow.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "accountdb/file_rewrite.h"
#include "accountdb/lock_file.h"
#include "services/logger.h"
#include "services/paths.h"
#include "services/unique_fd.h"

namespace orvs {
namespace {

constexpr const char* kSource = "passwdDB";
constexpr const char* kReading = "re";
constexpr const char* kReadingAndWriting = "r+e";

LoggerPtr dbLogger() {
  return getLogger("cli.passwddb", false);
}

// Whether another process has the lock that lckpwdf() takes. Must not be called while this process
// has it: closing the descriptor would release the lock.
bool isSystemLockHeld() {
  const UniqueFd file(::open(paths::kSystemLock, O_WRONLY | O_CLOEXEC));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  return file && ::fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Calls lckpwdf(), which may wait. After one wait in vain it is not called while somebody else has
// the lock.
bool takeSystemLock() {
  static bool waitedInVain = false;
  if (waitedInVain && isSystemLockHeld())
    return false;
  const bool isTaken = ::lckpwdf() == 0;
  waitedInVain = waitedInVain || !isTaken;
  return isTaken;
}

std::string joinLines(const std::list<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text.append(line).append(1, '\n');
  return text;
}

}  // namespace

DBFile::DBFile(std::string storePath)
    : DBStorage(std::move(storePath)), openMode(kReadingAndWriting) {
  readOnly = false;
}

DBFile::~DBFile() {
  DBFile::close();
  std::free(lineBuffer);
}

void DBFile::setReadOnly(bool flag) {
  DBStorage::setReadOnly(flag);
  openMode = flag ? kReading : kReadingAndWriting;
}

bool DBFile::openPath(const std::string& text) {
  path = text;
  return open();
}

bool DBFile::open() {
  if (path.empty())
    return false;
  if (opened)
    close();
  if (!readOnly && !locked)
    return false;
  stream.reset(std::fopen(path.c_str(), openMode));
  if (!stream) {
    ORVS_LOG(dbLogger(), 1, kSource, "cannot open file %s.", path.c_str());
    return false;
  }
  ORVS_LOG(dbLogger(), 0, kSource, "file %s is opened.", path.c_str());
  opened = true;
  readFailed = false;
  first();
  return true;
}

void DBFile::close() {
  currentLine.clear();
  opened = false;
  stream.reset();
}

bool DBFile::first() {
  currentLine.clear();
  if (!stream)
    return false;
  std::rewind(stream.get());
  return readLine();
}

bool DBFile::next() {
  currentLine.clear();
  if (!stream)
    return false;
  lineMark = ::ftello(stream.get());
  return readLine();
}

bool DBFile::readLine() {
  const ssize_t length = ::getdelim(&lineBuffer, &lineCapacity, '\n', stream.get());
  if (length < 0) {
    readFailed = readFailed || std::feof(stream.get()) == 0;
    return hasLine();
  }
  currentLine.assign(lineBuffer, static_cast<std::size_t>(length));
  if (!currentLine.empty() && currentLine.back() == '\n')
    currentLine.pop_back();
  return hasLine();
}

bool DBFile::lock() {
  if (lockCount == 0 && !takeSystemLock()) {
    ORVS_LOG(dbLogger(), 4, kSource, "lckpwdf() failed.");
    return false;
  }
  if (lockNoWait())
    return true;
  ORVS_LOG(dbLogger(), 1, kSource, "cannot lock file %s.", path.c_str());
  // The system lock is given up, even while this process holds another file's ".lock". An update
  // that could not lock its second file ends anyway, and other tools must not wait for it.
  ::ulckpwdf();
  return false;
}

bool DBFile::lockNoWait() {
  if (!takeLockFile(path))
    return false;
  ORVS_LOG(dbLogger(), 0, kSource, "file %s is locked.", path.c_str());
  locked = true;
  ++lockCount;
  return true;
}

void DBFile::unlock() {
  if (!locked)
    return;
  locked = false;
  ORVS_LOG(dbLogger(), 0, kSource, "file %s is unlocked.", path.c_str());
  dropLockFile(path);
  if (lockCount > 0)
    --lockCount;
  if (lockCount == 0) {
    ORVS_LOG(dbLogger(), 0, kSource, "all files are unlocked.");
    ::ulckpwdf();
  }
}

std::optional<std::string> DBFile::readText() {
  struct stat info = {};
  if (!stream || ::fstat(::fileno(stream.get()), &info) != 0)
    return std::nullopt;
  std::string text;
  std::array<char, 65536> buffer = {};
  text.reserve(static_cast<std::size_t>(info.st_size));
  for (;;) {
    const ssize_t count = ::pread(::fileno(stream.get()), buffer.data(), buffer.size(),
                                  static_cast<off_t>(text.size()));
    if (count == 0)
      return text;
    if (count > 0)
      text.append(buffer.data(), static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return std::nullopt;
  }
}

bool DBFile::closeUpdate(const std::list<std::string>& lines) {
  return closeUpdate(joinLines(lines), Attributes::Dropped);
}

bool DBFile::replaceText(std::string_view text) {
  return closeUpdate(text, Attributes::Kept);
}

// Replaces the file in four steps: backup, replacement beside the file, rename, sync of the
// directory. The account file is touched by the rename alone, so a reader sees the old file or the
// new one, and a failure before the rename leaves the old one.
bool DBFile::closeUpdate(std::string_view text, Attributes attributes) {
  if (readOnly || !opened || !locked || readFailed)
    return false;
  close();

  const LoggerPtr logger = dbLogger();
  const std::string backup = path + '-';
  if (path.empty() || !makeBackup(path, backup)) {
    ORVS_LOG(logger, 1, kSource, "cannot create backup file %s for %s.", backup.c_str(),
             path.c_str());
    return false;
  }
  ORVS_LOG(logger, 0, kSource, "backup file %s is created for %s.", backup.c_str(), path.c_str());

  ReplacementModel model = {{}, attributes == Attributes::Kept ? &path : nullptr};
  if (::stat(path.c_str(), &model.info) != 0)
    return false;
  const std::string temporary = path + '+';
  if (!writeReplacement(temporary, model, text)) {
    ORVS_LOG(logger, 1, kSource, "cannot open temporary file %s for writing.", temporary.c_str());
    static_cast<void>(::unlink(temporary.c_str()));
    return false;
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    ORVS_LOG(logger, 1, kSource, "cannot rename file %s to %s.", temporary.c_str(), path.c_str());
    static_cast<void>(::unlink(temporary.c_str()));
    return false;
  }
  fileRewritten = true;
  syncDirectoryOf(path);
  return true;
}

}  // namespace orvs
