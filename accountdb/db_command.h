// The stores behind the facades. They read a copy of the account file and change one account at a
// time.
//
// open() takes a snapshot of the file (snapshot.h), which is read until close(). modify() rewrites
// the file itself, under its locks. Reading a snapshot needs no lock, so lock() and unlock() do
// nothing.
//
// A hardened store loses nothing, and a store is hardened unless setHardened(false) is called. It
// reads whole lines, logs what is odd in the file at open(), and modify() sets the ids in the line
// that the file has at that time (account_text.h), keeping the file's attributes. A store that is
// not hardened reads lines in pieces, and its modify() replaces the line by the caller's
// (file_edit.h).
//
// add() and remove() run the system's account commands. Required: no run calls them. They complete
// the family, whose members can be exchanged for one another.
//
// The destructors close the store.
#pragma once

#include <string>

#include "accountdb/account_line.h"
#include "accountdb/db_storage.h"
#include "accountdb/snapshot.h"

namespace orvs {

// What both stores share. `file` is the account file, `itsKind` the kind of its lines. Only a
// passwd store logs that it could not make a temporary file.
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
// streams on "/dev/null". Announces the command on standard output and in the log. Returns the
// result of spawnfv.
int ExecuteCommand(const char* program, const char* const* argv);

}  // namespace orvs
