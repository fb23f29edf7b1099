#include "accountdb/db_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "accountdb/file_edit.h"
#include "services/logger.h"
#include "services/paths.h"
#include "services/say.h"
#include "services/spawn.h"
#include "services/unique_fd.h"

namespace orvs {
namespace {

constexpr const char* kSource = "passwdDB";
constexpr const char* kNull = "/dev/null";
constexpr int kStandardStreams = 3;

LoggerPtr dbLogger() {
  return getLogger("cli.passwddb", false);
}

UniqueFd openNull(int mode) {
  return UniqueFd(::open(kNull, mode | O_CLOEXEC));
}

// Lets the command write the account file to `fd`; a stream over `fd` when it succeeded, or null.
FILE* takeSnapshot(const char* const* argv, int fd) {
  const UniqueFd input = openNull(O_RDONLY);
  const UniqueFd errors = openNull(O_WRONLY);
  const std::array descriptors = {input.get(), fd, errors.get()};
  if (spawnfv(0, kStandardStreams, descriptors.data(), paths::kCat, argv) != 0)
    return nullptr;
  return ::fdopen(fd, "r");
}

// Closes the snapshot, by its stream when there is one, and removes its file.
void dropSnapshot(FILE*& file, int& fd, const char* path) {
  if (file != nullptr)
    std::fclose(file);
  else if (fd != -1)
    ::close(fd);
  if (fd != -1)
    static_cast<void>(::unlink(path));
  file = nullptr;
  fd = -1;
}

bool isMarkerLine(const char* line) {
  return line[0] == '+' || line[0] == '-';
}

// The next line, or piece of a line, that is no marker line; an empty string at the end. Required:
// an empty line is the end for the caller, as it is for the store that rewrites the file.
std::string readSnapshotLine(FILE* file, std::array<char, kReadBufferSize>& buffer) {
  do {
    if (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file) == nullptr)
      return {};
  } while (isMarkerLine(buffer.data()));
  std::string line = buffer.data();
  if (!line.empty() && line.back() == '\n')
    line.pop_back();
  return line;
}

}  // namespace

DBPwCommand::~DBPwCommand() {
  DBPwCommand::close();
}

bool DBPwCommand::open() {
  static const char* const kArguments[] = {paths::kCat, paths::kPasswd, nullptr};
  if (opened)
    close();
  tempPath = paths::kSnapshotTemplate;
  tempFd = ::mkstemp(tempPath);
  if (tempFd == -1) {
    ORVS_LOG(dbLogger(), 4, kSource, "cannot create temporary file %s.", tempPath.c_str());
    return false;
  }
  tempFile = takeSnapshot(kArguments, tempFd);
  if (tempFile == nullptr) {
    close();
    return false;
  }
  opened = true;
  first();
  return opened;
}

void DBPwCommand::close() {
  currentLine.clear();
  opened = false;
  dropSnapshot(tempFile, tempFd, tempPath.c_str());
}

bool DBPwCommand::first() {
  if (tempFile != nullptr && std::fseek(tempFile, 0, SEEK_SET) != 0)
    close();  // as after a failed read
  return next();
}

bool DBPwCommand::next() {
  currentLine.clear();
  if (tempFile == nullptr)
    return false;
  currentLine = readSnapshotLine(tempFile, readBuffer);
  if (std::ferror(tempFile) != 0)
    close();  // half a snapshot is none: the caller finds the store closed
  return hasLine();
}

bool DBPwCommand::modify(const std::string& line) {
  return modifyRecord<DBPasswd>(paths::kPasswd, line);
}

bool DBPwCommand::add(const std::string& line) {
  DBPasswd user;
  if (!parseNamed(user, line))
    return false;
  const std::string uid = std::to_string(user.uid);
  const std::string gid = std::to_string(user.gid);
  const char* const arguments[] = {paths::kUserAdd,  "-u", uid.c_str(),        "-g",
                                   gid.c_str(),      "-c", user.gecos.c_str(), "-d",
                                   user.dir.c_str(), "-s", user.shell.c_str(), user.name.c_str(),
                                   nullptr};
  return ExecuteCommand(paths::kUserAdd, arguments) == 0;
}

bool DBPwCommand::remove(const std::string& line) {
  DBPasswd user;
  if (!parseNamed(user, line))
    return false;
  const char* const arguments[] = {paths::kUserDel, user.name.c_str(), nullptr};
  return ExecuteCommand(paths::kUserDel, arguments) == 0;
}

DBGrCommand::~DBGrCommand() {
  DBGrCommand::close();
}

bool DBGrCommand::open() {
  static const char* const kArguments[] = {paths::kCat, paths::kGroup, nullptr};
  if (opened)
    close();
  std::strncpy(tempPath.data(), paths::kSnapshotTemplate, tempPath.size() - 1);
  tempFd = ::mkostemp(tempPath.data(), O_CLOEXEC);
  if (tempFd == -1)
    return false;
  tempFile = takeSnapshot(kArguments, tempFd);
  if (tempFile == nullptr) {
    close();
    return false;
  }
  opened = true;
  first();
  return opened;
}

void DBGrCommand::close() {
  currentLine.clear();
  opened = false;
  dropSnapshot(tempFile, tempFd, tempPath.data());
}

bool DBGrCommand::first() {
  if (tempFile != nullptr && std::fseek(tempFile, 0, SEEK_SET) != 0)
    close();  // as after a failed read
  return next();
}

bool DBGrCommand::next() {
  currentLine.clear();
  if (tempFile == nullptr)
    return false;
  currentLine = readSnapshotLine(tempFile, readBuffer);
  if (std::ferror(tempFile) != 0)
    close();  // half a snapshot is none: the caller finds the store closed
  return hasLine();
}

bool DBGrCommand::modify(const std::string& line) {
  return modifyRecord<DBGroup>(paths::kGroup, line);
}

bool DBGrCommand::add(const std::string& line) {
  DBGroup group;
  if (!parseNamed(group, line))
    return false;
  const std::string gid = std::to_string(group.gid);
  const char* const arguments[] = {paths::kGroupAdd, "-g", gid.c_str(), group.name.c_str(),
                                   nullptr};
  return ExecuteCommand(paths::kGroupAdd, arguments) == 0;
}

bool DBGrCommand::remove(const std::string& line) {
  DBGroup group;
  if (!parseNamed(group, line))
    return false;
  const char* const arguments[] = {paths::kGroupDel, group.name.c_str(), nullptr};
  return ExecuteCommand(paths::kGroupDel, arguments) == 0;
}

int ExecuteCommand(const char* program, const char* const* argv) {
  std::string display;
  for (const char* const* argument = argv; *argument != nullptr; ++argument)
    display.append(*argument).append(1, ' ');
  const LoggerPtr logger = dbLogger();
  SAY(logger, 1, kSource, Echo::Stdout, "executing command (%s)...", display.c_str());

  int rc = 0;
  {
    const UniqueFd input = openNull(O_RDONLY);
    const UniqueFd output = openNull(O_WRONLY);
    const UniqueFd errors(::fcntl(output.get(), F_DUPFD_CLOEXEC, 0));
    const std::array descriptors = {input.get(), output.get(), errors.get()};
    rc = spawnfv(0, kStandardStreams, descriptors.data(), program, argv);
  }
  if (rc != 0)
    ORVS_LOG(logger, 1, kSource, "command (%s) failed, rc = %d.", display.c_str(), rc);
  return rc;
}

}  // namespace orvs
