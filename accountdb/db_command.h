// The stores that the facades are built on: they read through a command and change one account at a
// time.
//
// open() takes a snapshot of the account file (snapshot.h), which is walked and which lives until
// close(). modify() rewrites the real file, under its locks. No lock is needed to read a snapshot,
// so lock() and unlock() do nothing.
//
// A hardened store, and it is one unless told otherwise, loses nothing: lines are read whole, what
// is odd in the file is logged when it is opened, and modify() sets the ids in the entry that the
// file has by then (account_text.h), keeping attributes. One that is not reads lines in pieces, and
// modify() puts the caller's line in the entry's place, through a file operator.
//
// add() and remove() run the system's account commands. Required: no run calls them; they complete
// the family, whose members can be exchanged for one another.
//
// The destructors close the store.
#pragma once

#include <string>

#include "accountdb/account_line.h"
#include "accountdb/db_storage.h"
#include "accountdb/snapshot.h"

namespace orvs {

// What the two stores share. `file` is the account file, `itsKind` what its lines are; whether a
// temporary file that cannot be made is logged depends on it.
class DBCommand : public DBStorage {
 public:
  DBCommand(std::string storePath, const char* file, AccountKind itsKind)
      : DBStorage(std::move(storePath)), accountFile(file), kind(itsKind) {}

  void setHardened(bool flag) { hardened = flag; }
  bool isHardened() const { return hardened; }

  bool isFileBacked() const override { return false; }
  bool open() override;
  void close() override;
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }

 private:
  void logOddities() const;

  const char* accountFile;
  AccountKind kind;
  bool hardened = true;
  Snapshot snapshot;
};

class DBPwCommand : public DBCommand {
 public:
  explicit DBPwCommand(std::string storePath = {});

  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;
};

class DBGrCommand : public DBCommand {
 public:
  explicit DBGrCommand(std::string storePath = {});

  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;
};

// Runs `program` with `argv` (null-terminated, the program's path first), its three standard
// streams on "/dev/null". Says so on standard output and in the log. Returns the result of spawnfv.
int ExecuteCommand(const char* program, const char* const* argv);

}  // namespace orvs
