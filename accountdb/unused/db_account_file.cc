#include "accountdb/unused/db_account_file.h"

#include <utility>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "accountdb/file_edit.h"
#include "accountdb/unused/db_shadow.h"

namespace orvs {
namespace {

using ShadowFile = DBOperator<DBShadow, DBFile>;

// Makes the shadow entry of a user without settings; false when no shadow line can have the name.
bool defaultShadow(const std::string& name, DBShadow& shadow) {
  return parseNamed(shadow, name + kDefaultShadowTail);
}

}  // namespace

DBPwUser::DBPwUser(std::string storePath) : file(std::move(storePath)) {
  file.setReadOnly(true);
}

DBPwUser::~DBPwUser() {
  file.close();
}

bool DBPwUser::modify(const std::string& line) {
  return modifyRecord<DBPasswd>(paths::kPasswd, line);
}

bool DBPwUser::add(const std::string& line) {
  DBPasswd user;
  if (!parseNamed(user, line) || !addRecord(paths::kPasswd, user))
    return false;
  DBShadow shadow;
  if (!defaultShadow(user.name, shadow))
    return false;
  ShadowFile shadowFile(paths::kShadow);
  // Required: a system without a usable shadow file is no failure; the passwd change stands.
  if (!shadowFile.openAndLoad(true))
    return true;
  return appendAndCommit(shadowFile, shadow);
}

bool DBPwUser::remove(const std::string& line) {
  DBPasswd user;
  if (!parseNamed(user, line) || !removeRecord<DBPasswd>(paths::kPasswd, user.name))
    return false;
  DBShadow shadow;
  if (!defaultShadow(user.name, shadow))
    return false;
  ShadowFile shadowFile(paths::kShadow);
  if (!shadowFile.openAndLoad(true))
    return true;
  // Required: false for a user without a shadow line, although the passwd line is gone already.
  return eraseAndCommit(shadowFile, user.name);
}

DBGrGroup::DBGrGroup(std::string storePath) : file(std::move(storePath)) {
  file.setReadOnly(true);
}

DBGrGroup::~DBGrGroup() {
  file.close();
}

bool DBGrGroup::modify(const std::string& line) {
  return modifyRecord<DBGroup>(paths::kGroup, line);
}

bool DBGrGroup::add(const std::string& line) {
  DBGroup group;
  return parseNamed(group, line) && addRecord(paths::kGroup, group);
}

bool DBGrGroup::remove(const std::string& line) {
  DBGroup group;
  return parseNamed(group, line) && removeRecord<DBGroup>(paths::kGroup, group.name);
}

}  // namespace orvs
