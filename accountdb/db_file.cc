#include "accountdb/db_file.h"

#include <shadow.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "accountdb/file_rewrite.h"
#include "accountdb/lock_file.h"
#include "services/logger.h"

namespace orvs {
namespace {

constexpr const char* kSource = "passwdDB";
constexpr const char* kReading = "re";
constexpr const char* kReadingAndWriting = "r+e";

LoggerPtr dbLogger() {
  return getLogger("cli.passwddb", false);
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
  if (lockCount == 0 && ::lckpwdf() == -1) {
    ORVS_LOG(dbLogger(), 4, kSource, "lckpwdf() failed.");
    return false;
  }
  if (lockNoWait())
    return true;
  ORVS_LOG(dbLogger(), 1, kSource, "cannot lock file %s.", path.c_str());
  // Required: given back even while another file's ".lock" is held. An update that could not get
  // its second file ends anyway, and other tools must not wait for it.
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

bool DBFile::closeUpdate(const std::list<std::string>& lines) {
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

  struct stat model = {};
  if (::stat(path.c_str(), &model) != 0)
    return false;
  const std::string temporary = path + '+';
  if (!writeReplacement(temporary, model, lines)) {
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
