// The contract of a store of account lines: open it, read its lines, lock it, change it.
//
// Reading is open(), then hasLine() / getLine() / next() until hasLine() is false. An empty line
// counts as the end: the lines behind it are not read. Lines have no newline. Every operation
// reports by bool; none throws. A store overrides the operations that it has. The others return
// false and change nothing.
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

  // True in the store over one file, false in every other. Required: nothing calls it. It keeps the
  // order of the operations, which is the same in every store of the family.
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
  // Goes back and reads the first line; true when that is not empty.
  virtual bool first() = 0;
  // Reads the next line; true when that is not empty.
  virtual bool next() = 0;
  // Required: operations without a meaning hold the places of this table. Nothing calls them.
  virtual bool reservedOp0() = 0;
  virtual bool hasLine() const { return !currentLine.empty(); }
  virtual std::string getLine() const { return currentLine; }
  virtual bool reservedOp1() { return false; }
  virtual bool reservedOp2() { return false; }
  virtual bool reservedOp3() { return false; }
  // modify() replaces the account whose name the line has, add() adds an account, remove() removes
  // the one whose name the line has.
  virtual bool modify(const std::string& /*line*/) { return false; }
  virtual bool add(const std::string& /*line*/) { return false; }
  virtual bool remove(const std::string& /*line*/) { return false; }
  // Replaces the content of the store by `lines`.
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
