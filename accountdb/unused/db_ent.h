// Stores over the C library's account iteration: every passwd or group record that this machine
// knows, whatever its source, formatted as a line.
//
// They cannot change anything: the changing operations return false, and locking does nothing. A
// process has one iteration of each kind, so two open stores of one kind disturb each other. The
// destructors end the iteration.
//
// Required: no run builds either store; they complete the family.
#pragma once

#include <grp.h>
#include <pwd.h>

#include "accountdb/db_storage.h"

namespace orvs {

class DBPwEnt : public DBStorage {
 public:
  using DBStorage::DBStorage;
  ~DBPwEnt() override;

  bool isFileBacked() const override { return false; }
  bool open() override;
  void close() override;
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }

 private:
  struct passwd* record = nullptr;  // the C library's, until its next call
};

class DBGrEnt : public DBStorage {
 public:
  using DBStorage::DBStorage;
  ~DBGrEnt() override;

  bool isFileBacked() const override { return false; }
  bool open() override;
  void close() override;
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }

 private:
  struct group* record = nullptr;  // the C library's, until its next call
};

}  // namespace orvs
