#include "accountdb/db_command.h"

#include <fcntl.h>

#include <array>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "accountdb/file_edit.h"
#include "accountdb/file_oddities.h"
#include "services/logger.h"
#include "services/paths.h"
#include "services/say.h"
#include "services/spawn.h"
#include "services/std_streams.h"

namespace orvs {
namespace {

constexpr const char* kSource = "passwdDB";

LoggerPtr dbLogger() {
  return getLogger("cli.passwddb", false);
}

}  // namespace

bool DBCommand::open() {
  if (opened)
    close();
  const Snapshot::Taken taken =
      snapshot.take(accountFile, hardened ? Snapshot::Lines::Whole : Snapshot::Lines::Pieces);
  if (taken == Snapshot::Taken::NoTemporaryFile && kind == AccountKind::Passwd)
    ORVS_LOG(dbLogger(), 4, kSource, "cannot create temporary file %s.", snapshot.path().c_str());
  opened = taken == Snapshot::Taken::Done;
  if (!opened)
    return false;
  if (hardened)
    logOddities();
  first();
  return true;
}

void DBCommand::logOddities() const {
  const LoggerPtr logger = dbLogger();
  if (!logEnabled(logger, 3))
    return;
  for (const std::string& oddity : odditiesOf(snapshot.text(), kind))
    ORVS_LOG(logger, 3, kSource, "%s: %s.", accountFile, oddity.c_str());
}

void DBCommand::close() {
  currentLine.clear();
  opened = false;
  snapshot.drop();
}

bool DBCommand::first() {
  if (snapshot.isTaken() && !snapshot.rewind())
    close();  // as next() does after a failed read
  return next();
}

bool DBCommand::next() {
  currentLine.clear();
  if (!snapshot.isTaken())
    return false;
  currentLine = snapshot.readLine();
  if (snapshot.hasFailed())
    close();  // a partial snapshot counts as none: the caller finds the store closed
  return hasLine();
}

DBPwCommand::DBPwCommand(std::string storePath)
    : DBCommand(std::move(storePath), paths::kPasswd, AccountKind::Passwd) {}

bool DBPwCommand::modify(const std::string& line) {
  if (!isHardened())
    return modifyRecord<DBPasswd>(paths::kPasswd, line);
  DBPasswd user;
  return parseNamed(user, line) &&
         setIds(paths::kPasswd, {AccountKind::Passwd, user.name, user.uid, user.gid});
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

DBGrCommand::DBGrCommand(std::string storePath)
    : DBCommand(std::move(storePath), paths::kGroup, AccountKind::Group) {}

bool DBGrCommand::modify(const std::string& line) {
  if (!isHardened())
    return modifyRecord<DBGroup>(paths::kGroup, line);
  DBGroup group;
  return parseNamed(group, line) &&
         setIds(paths::kGroup, {AccountKind::Group, group.name, 0, group.gid});
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
    rc = spawnfv(0, static_cast<int>(descriptors.size()), descriptors.data(), program, argv);
  }
  if (rc != 0)
    ORVS_LOG(logger, 1, kSource, "command (%s) failed, rc = %d.", display.c_str(), rc);
  return rc;
}

}  // namespace orvs
