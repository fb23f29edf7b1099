// One change of one account in its file, by a file operator that lives as long as the call.
//
// The command stores and the stores in unused/ share these steps. The line is parsed before any
// lock is taken. Then the whole file is read anew under its locks, which keeps what other processes
// changed since the store was opened. Then the file is written. After a failure the operator's
// destructor closes and unlocks, and nothing has changed. setIds() uses no operator, and loses
// nothing of the file. Reports by bool.
#pragma once

#include <string>

#include "accountdb/account_text.h"
#include "accountdb/db_operator.h"

namespace orvs {

// Sets the ids of one account in its file, by withIds(). False when withIds() has no answer, and
// for every other failure.
bool setIds(const char* path, const IdChange& change);

// Parses a line that must name an account.
template <class Entry>
bool parseNamed(Entry& entry, const std::string& line) {
  return entry.parse(line) && !entry.name.empty();
}

template <class Entry>
bool lockAndLoad(DBOperator<Entry, DBFile>& file) {
  return file.storage.lock() && file.storage.open() && file.load(file.storage);
}

// Replaces the line of the account that `line` names; false when the file has no such account.
template <class Entry>
bool modifyRecord(const char* path, const std::string& line) {
  Entry entry;
  if (!parseNamed(entry, line))
    return false;
  DBOperator<Entry, DBFile> file(path);
  return lockAndLoad(file) && file.update(entry) && file.commit();
}

// Adds `entry` at the end of a loaded file. Required: a name that the file has already is in it
// twice then, and the first one hides the other.
template <class Entry>
bool appendAndCommit(DBOperator<Entry, DBFile>& file, const Entry& entry) {
  if (entry.isEmpty())
    return false;
  file.dirty = true;
  file.insert(entry);
  return file.commit();
}

// Removes the first entry of that name from a loaded file.
template <class Entry>
bool eraseAndCommit(DBOperator<Entry, DBFile>& file, const std::string& name) {
  const auto found = file.position(name);
  if (found == file.entries.end())
    return false;
  file.dirty = true;
  file.erase(found);
  return file.commit();
}

template <class Entry>
bool addRecord(const char* path, const Entry& entry) {
  DBOperator<Entry, DBFile> file(path);
  return lockAndLoad(file) && appendAndCommit(file, entry);
}

template <class Entry>
bool removeRecord(const char* path, const std::string& name) {
  DBOperator<Entry, DBFile> file(path);
  return lockAndLoad(file) && eraseAndCommit(file, name);
}

}  // namespace orvs
