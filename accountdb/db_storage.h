// The contract of a line-oriented account store: open it, walk its lines, lock it, change it.
//
// A walk is open(), then hasLine() / getLine() / next() until hasLine() is false. An empty line is
// the same as the end: what lies behind it is not read. Lines have no newline. Every operation
// reports by bool; none throws. The back ends override the operations that they have; the others
// answer false and change nothing.
#pragma once

#include <list>
#include <string>
#include <utility>

namespace orvs {

class DBStorage {
 public:
  explicit DBStorage(std::string storePath = {}) : path(std::move(storePath)) {}
  DBStorage(const DBStorage&) = delete;
  DBStorage& operator=(const DBStorage&) = delete;
  virtual ~DBStorage() = default;

  // True in the store over one flat file, false in every other. Required: nothing calls it; it
  // keeps the order of the operations, which is the same in every store of the family.
  virtual bool isFileBacked() const = 0;
  virtual void setReadOnly(bool flag) { readOnly = flag; }
  virtual bool isReadOnly() const { return readOnly; }
  // Opens the store and reads the first line. Opens an open store anew.
  virtual bool open() = 0;
  virtual void close() {}
  virtual bool isOpen() const { return opened; }
  virtual bool lock() = 0;
  virtual void unlock() = 0;
  virtual bool isLocked() const { return locked; }
  // Rewinds and reads the first line; true when it is not empty.
  virtual bool first() = 0;
  // Reads the next line; true when it is not empty.
  virtual bool next() = 0;
  // Required: operations without a meaning of their own hold the places of this table; nothing
  // calls them.
  virtual bool reservedOp0() = 0;
  virtual bool hasLine() const { return !currentLine.empty(); }
  virtual std::string getLine() const { return currentLine; }
  virtual bool reservedOp1() { return false; }
  virtual bool reservedOp2() { return false; }
  virtual bool reservedOp3() { return false; }
  // Replaces the record of the line's name; adds a record; removes the record of the line's name.
  virtual bool modify(const std::string& /*line*/) { return false; }
  virtual bool add(const std::string& /*line*/) { return false; }
  virtual bool remove(const std::string& /*line*/) { return false; }
  // Replaces the whole store by `lines`.
  virtual bool closeUpdate(const std::list<std::string>& /*lines*/) { return false; }

 protected:
  std::string path;
  bool readOnly = true;  // the store may not be changed
  bool opened = false;
  bool locked = false;  // this object holds the file lock
  std::string currentLine;
  [[maybe_unused]] bool reservedFlag = false;  // Required: holds its place; nothing uses it
};

}  // namespace orvs
