// The facades over the passwd and the group file, which driver and maps use.
//
// The caller opens `storage`, then calls load(storage); storage.isOpen() tells whether the file
// could be read. Pointers to entries stay valid until the next load() or commit(), and updates also
// change the entries that they point to. Ids are unsigned 32-bit. updateUser and updateGroup
// rewrite the file at once and return 0, or 1 on failure. Nothing here throws or logs. `hardened`
// is the setting idshift.hardened: whether an update loses nothing of the file, or rewrites it
// literally from its parsed lines (db_command.h).
//
// One thread. The destructors close the stores.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <list>
#include <map>
#include <string>

#include "accountdb/db_command.h"
#include "accountdb/db_group.h"
#include "accountdb/db_operator.h"
#include "accountdb/db_passwd.h"
#include "services/paths.h"

namespace orvs {

class PasswdDB : public DBOperator<DBPasswd, DBPwCommand> {
 public:
  explicit PasswdDB(bool readOnly, bool hardened = true, std::string path = paths::kPasswd);

  // One pointer for each entry, in file order.
  std::list<DBPasswd*> getEntries();
  int updateUser(const std::string& name, uint32_t uid, uint32_t gid);

 private:
  friend std::ostream& operator<<(std::ostream& out, const PasswdDB& users);

  std::list<DBPasswd*> entryRefs;
  std::string sourcePath;
};

class GroupDB : public DBOperator<DBGroup, DBGrCommand> {
 public:
  explicit GroupDB(bool readOnly, bool hardened = true, std::string path = paths::kGroup);

  // One pointer for each entry, in file order.
  std::list<DBGroup*> getEntries();
  int updateGroup(const std::string& name, uint32_t gid);

  // The group with the gid, or null. Of two groups with one gid the last one is found, unlike in
  // find().
  DBGroup* findByGid(uint32_t gid);

  // As in DBOperator. They also drop the index of gids, whose pointers become stale.
  bool load(DBGrCommand& from);
  void insert(const DBGroup& entry);
  void erase(Position position);
  bool commit();

 private:
  friend std::ostream& operator<<(std::ostream& out, const GroupDB& groups);

  std::list<DBGroup*> entryRefs;
  bool indexStale = true;  // gidIndex must be rebuilt
  std::map<uint32_t, DBGroup*> gidIndex;
  std::string sourcePath;
};

// "User File: " or "Group File: " with the path, a rule, and each entry's line.
std::ostream& operator<<(std::ostream& out, const PasswdDB& users);
std::ostream& operator<<(std::ostream& out, const GroupDB& groups);

}  // namespace orvs
