// A whole account file in memory: load it, look an entry up, replace one, write the file back.
//
// Entry is one of the three kinds of line, Storage the store that the lines come from. Entries are
// values in a list, so a pointer to one stays valid until the next load() or commit(). Lookups are
// by exact name; the first of two equal names hides the second. A rewrite moves marker lines to the
// end and drops lines that are neither usable nor markers.
//
// Reports by bool; never throws, never logs. The destructor calls commit(), so it may write and
// unlock. Nobody learns of an error then.
#pragma once

#include <algorithm>
#include <concepts>
#include <list>
#include <string>
#include <utility>

#include "accountdb/db_file.h"

namespace orvs {

class DBShadow;  // unused/db_shadow.h

// A store that is written as a whole, by closeUpdate. The others change one record at a time.
template <class Storage>
concept WholeFileStore = std::derived_from<Storage, DBFile>;

template <class Entry, class Storage>
class DBOperator {
 public:
  using Position = typename std::list<Entry>::iterator;

  // A file store starts writable, every other one read-only.
  explicit DBOperator(std::string path) : storage(std::move(path)) {}
  DBOperator(const DBOperator&) = delete;
  DBOperator& operator=(const DBOperator&) = delete;
  virtual ~DBOperator() { commit(); }

  // Reads the lines of an open store; false when it is not open.
  bool load(Storage& from);

  // A copy of the first entry of that name. Without one, a cleared entry, whose name is empty.
  Entry find(const std::string& name);

  // Replaces the first entry of the same name. A file store is written by the next commit().
  bool update(const Entry& entry) requires WholeFileStore<Storage>;
  // Every other store is changed at once, and memory follows.
  bool update(const Entry& entry) requires(!WholeFileStore<Storage>);

  // The caller of insert() and erase() sets `dirty`.
  void insert(const Entry& entry) { entries.push_back(entry); }
  void erase(Position position) { entries.erase(position); }

  // Writes the file when `dirty`, otherwise only closes it. Unlocks, and forgets all entries.
  bool commit();

  // Locks a writable store, opens it, and loads it when `loadIt` is true. Required: only the
  // operator of the shadow file has this, for the store that changes both files of a user.
  bool openAndLoad(bool loadIt) requires std::same_as<Entry, DBShadow> && WholeFileStore<Storage>;

  // The first entry of that name, or the end of the list.
  Position position(const std::string& name) {
    return std::find_if(entries.begin(), entries.end(),
                        [&](const Entry& entry) { return entry.name == name; });
  }

  std::list<std::string> headLines;  // Required: written ahead of the entries; nothing fills it
  std::list<std::string> tailLines;  // marker lines, written after the entries
  std::list<Entry> entries;          // one for each usable line, in file order
  Entry scratch;                     // reused while loading
  Storage storage;
  bool dirty = false;  // the list has changes to write

 private:
  void forget();
  std::list<std::string> formatAll() const;
};

template <class Entry, class Storage>
void DBOperator<Entry, Storage>::forget() {
  entries.clear();
  headLines.clear();
  tailLines.clear();
  dirty = false;
}

template <class Entry, class Storage>
bool DBOperator<Entry, Storage>::load(Storage& from) {
  forget();
  if (!from.isOpen())
    return false;
  // Required: an empty line ends the list, and with it a rewritten file.
  for (; from.hasLine(); from.next()) {
    const std::string line = from.getLine();
    if (scratch.parse(line))
      entries.push_back(scratch);
    else if (scratch.isMarker())
      tailLines.push_back(line);
  }
  return true;
}

template <class Entry, class Storage>
Entry DBOperator<Entry, Storage>::find(const std::string& name) {
  const Position found = position(name);
  if (found != entries.end())
    return *found;
  scratch.clear();
  return scratch;
}

template <class Entry, class Storage>
bool DBOperator<Entry, Storage>::update(const Entry& entry) requires WholeFileStore<Storage> {
  if (storage.isReadOnly())
    return false;
  const Position found = position(entry.name);
  if (found == entries.end())
    return false;
  dirty = true;
  *found = entry;
  return true;
}

template <class Entry, class Storage>
bool DBOperator<Entry, Storage>::update(const Entry& entry) requires(!WholeFileStore<Storage>) {
  if (storage.isReadOnly())
    return false;
  const Position found = position(entry.name);
  if (found == entries.end() || !storage.modify(entry.format()))
    return false;
  *found = entry;
  return true;
}

template <class Entry, class Storage>
std::list<std::string> DBOperator<Entry, Storage>::formatAll() const {
  std::list<std::string> lines = headLines;
  for (const Entry& entry : entries)
    lines.push_back(entry.format());
  lines.insert(lines.end(), tailLines.begin(), tailLines.end());
  return lines;
}

template <class Entry, class Storage>
bool DBOperator<Entry, Storage>::commit() {
  bool done = true;
  if (!storage.isReadOnly() && dirty)
    done = storage.closeUpdate(formatAll());
  else
    storage.close();
  if (!storage.isReadOnly())
    storage.unlock();
  forget();
  return done;
}

template <class Entry, class Storage>
bool DBOperator<Entry, Storage>::openAndLoad(bool loadIt) requires std::same_as<Entry, DBShadow> &&
    WholeFileStore<Storage> {
  if (!storage.isReadOnly() && !storage.lock())
    return false;
  if (!storage.open())
    return false;
  return !loadIt || load(storage);
}

}  // namespace orvs
