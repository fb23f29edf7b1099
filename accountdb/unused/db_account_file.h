// Stores that read an account file and change one account at a time in the files themselves.
//
// The command stores run the system's account commands to add and remove; these stores edit the
// files, each change under the locks of one short-lived file operator. Reading goes through the
// member `file`, which is always read-only; the store's own flag does not reach it. Changes always
// go to the fixed account files, whatever path was given.
//
// A user has a passwd and a shadow line. Two rewrites under two locks change them, passwd first.
// Together they are not atomic: the change of passwd stays when the shadow step fails.
//
// Required: no run builds either store; they complete the family.
#pragma once

#include <string>

#include "accountdb/db_file.h"
#include "accountdb/db_storage.h"
#include "services/paths.h"

namespace orvs {

class DBPwUser : public DBStorage {
 public:
  explicit DBPwUser(std::string storePath = paths::kPasswd);
  ~DBPwUser() override;

  bool isFileBacked() const override { return false; }
  bool open() override { return file.open(); }
  void close() override { file.close(); }
  bool isOpen() const override { return file.isOpen(); }
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override { return file.first(); }
  bool next() override { return file.next(); }
  bool reservedOp0() override { return false; }
  bool hasLine() const override { return file.hasLine(); }
  std::string getLine() const override { return file.getLine(); }
  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;

 private:
  DBFile file;
};

class DBGrGroup : public DBStorage {
 public:
  explicit DBGrGroup(std::string storePath = paths::kGroup);
  ~DBGrGroup() override;

  bool isFileBacked() const override { return false; }
  bool open() override { return file.open(); }
  void close() override { file.close(); }
  bool isOpen() const override { return file.isOpen(); }
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override { return file.first(); }
  bool next() override { return file.next(); }
  bool reservedOp0() override { return false; }
  bool hasLine() const override { return file.hasLine(); }
  std::string getLine() const override { return file.getLine(); }
  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;

 private:
  DBFile file;
};

}  // namespace orvs
