#include "accountdb/passwdDB.h"

#include <ostream>

namespace orvs {
namespace {

constexpr const char* kRule = "------------------------------------------------------------";

template <class Entry>
std::list<Entry*> pointersTo(std::list<Entry>& entries) {
  std::list<Entry*> pointers;
  for (Entry& entry : entries)
    pointers.push_back(&entry);
  return pointers;
}

template <class Entry>
void print(std::ostream& out,
           const char* title,
           const std::string& path,
           const std::list<Entry>& entries) {
  out << title << path << '\n' << kRule << '\n';
  for (const Entry& entry : entries)
    out << entry.format() << '\n';
}

}  // namespace

PasswdDB::PasswdDB(bool readOnly, bool hardened, std::string path)
    : DBOperator(path), sourcePath(std::move(path)) {
  storage.setReadOnly(readOnly);
  storage.setHardened(hardened);
}

std::list<DBPasswd*> PasswdDB::getEntries() {
  entryRefs = pointersTo(entries);
  return entryRefs;
}

int PasswdDB::updateUser(const std::string& name, uint32_t uid, uint32_t gid) {
  DBPasswd user = find(name);
  if (user.name.empty())
    return 1;
  user.uid = uid;
  user.gid = gid;
  return update(user) ? 0 : 1;
}

GroupDB::GroupDB(bool readOnly, bool hardened, std::string path)
    : DBOperator(path), sourcePath(std::move(path)) {
  storage.setReadOnly(readOnly);
  storage.setHardened(hardened);
}

std::list<DBGroup*> GroupDB::getEntries() {
  entryRefs = pointersTo(entries);
  return entryRefs;
}

int GroupDB::updateGroup(const std::string& name, uint32_t gid) {
  DBGroup group = find(name);
  if (group.name.empty())
    return 1;
  group.gid = gid;
  if (!update(group))
    return 1;
  indexStale = true;
  return 0;
}

DBGroup* GroupDB::findByGid(uint32_t gid) {
  if (indexStale) {
    gidIndex.clear();
    for (DBGroup& group : entries)
      gidIndex[group.gid] = &group;
    indexStale = false;
  }
  const auto found = gidIndex.find(gid);
  return found == gidIndex.end() ? nullptr : found->second;
}

bool GroupDB::load(DBGrCommand& from) {
  indexStale = true;
  return DBOperator::load(from);
}

void GroupDB::insert(const DBGroup& entry) {
  indexStale = true;
  DBOperator::insert(entry);
}

void GroupDB::erase(Position position) {
  indexStale = true;
  DBOperator::erase(position);
}

bool GroupDB::commit() {
  indexStale = true;
  return DBOperator::commit();
}

std::ostream& operator<<(std::ostream& out, const PasswdDB& users) {
  print(out, "User File: ", users.sourcePath, users.entries);
  return out;
}

std::ostream& operator<<(std::ostream& out, const GroupDB& groups) {
  print(out, "Group File: ", groups.sourcePath, groups.entries);
  return out;
}

}  // namespace orvs
