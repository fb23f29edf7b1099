// One change of one account in its file, by a file operator that lives as long as the call.
//
// The steps that the command stores and the per-account stores have in common: the line is parsed
// before any lock is taken; then the whole file is read anew under its locks, so that what other
// processes changed meanwhile is kept; then it is written back. Whatever fails, the operator's
// destructor closes and unlocks, and nothing has changed. setIds() does without an operator and
// without loss. Reports by bool.
#pragma once

#include <string>

#include "accountdb/account_text.h"
#include "accountdb/db_operator.h"

namespace orvs {

// Sets the ids of one account in its file, as withIds() does; false when that has no answer.
bool setIds(const char* path, const IdChange& change);

// Reads a line that must name an account.
template <class Entry>
bool parseNamed(Entry& entry, const std::string& line) {
  return entry.parse(line) && !entry.name.empty();
}

template <class Entry>
bool lockAndLoad(DBOperator<Entry, DBFile>& file) {
  return file.storage.lock() && file.storage.open() && file.load(file.storage);
}

// Replaces the record of the line's name; false when the file has none.
template <class Entry>
bool modifyRecord(const char* path, const std::string& line) {
  Entry entry;
  if (!parseNamed(entry, line))
    return false;
  DBOperator<Entry, DBFile> file(path);
  return lockAndLoad(file) && file.update(entry) && file.commit();
}

// Puts `entry` at the end of a loaded file. Required: a name that is there already is there twice
// afterwards; the first one hides the other.
template <class Entry>
bool appendAndCommit(DBOperator<Entry, DBFile>& file, const Entry& entry) {
  if (entry.isEmpty())
    return false;
  file.dirty = true;
  file.insert(entry);
  return file.commit();
}

// Takes the first entry of that name out of a loaded file.
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
