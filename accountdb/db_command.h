// The stores that the facades are built on: they read through a command and change one account at a
// time.
//
// open() copies the account file with "/bin/cat" into a temporary file, which is walked and which
// lives until close(). modify() rewrites the real file through a file operator, under its locks.
// add() and remove() run the system's account commands. No lock is needed to read a snapshot, so
// lock() and unlock() do nothing. A line of 1,024 bytes or more, its newline included, arrives in
// pieces. Marker lines never reach the caller.
//
// The destructors close the store and remove the temporary file.
#pragma once

#include <array>
#include <cstdio>
#include <string>

#include "accountdb/db_storage.h"

namespace orvs {

inline constexpr std::size_t kReadBufferSize = 1024;

class DBPwCommand : public DBStorage {
 public:
  using DBStorage::DBStorage;
  ~DBPwCommand() override;

  bool isFileBacked() const override { return false; }
  bool open() override;
  void close() override;
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }
  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;

 private:
  std::string tempPath;
  int tempFd = -1;
  FILE* tempFile = nullptr;  // over tempFd, which it then owns
  std::array<char, kReadBufferSize> readBuffer = {};
};

class DBGrCommand : public DBStorage {
 public:
  using DBStorage::DBStorage;
  ~DBGrCommand() override;

  bool isFileBacked() const override { return false; }
  bool open() override;
  void close() override;
  bool lock() override { return true; }
  void unlock() override {}
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }
  bool modify(const std::string& line) override;
  bool add(const std::string& line) override;
  bool remove(const std::string& line) override;

 private:
  std::array<char, 32> tempPath = {};  // the template and its end
  int tempFd = -1;
  FILE* tempFile = nullptr;  // over tempFd, which it then owns
  std::array<char, kReadBufferSize> readBuffer = {};
};

// Runs `program` with `argv` (null-terminated, the program's path first), its three standard
// streams on "/dev/null". Says so on standard output and in the log. Returns the result of spawnfv.
int ExecuteCommand(const char* program, const char* const* argv);

}  // namespace orvs
