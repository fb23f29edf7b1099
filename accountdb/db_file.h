// The store over one file. Only this store writes an account file.
//
// An update is: construct, lock(), open(), read the lines, closeUpdate(lines), unlock(). A change
// that keeps attributes and every byte calls readText() and replaceText(text) instead.
//
// The lock has two layers: the system-wide lock of lckpwdf(), which the process holds while it
// holds any ".lock" file, and the ".lock" file of each path (lock_file.h). lckpwdf() waits up to 15
// seconds. After one wait in vain a process does not wait again: a system lock that is still held
// fails at once.
//
// The file is replaced by rename, after a backup named with "-". A failure leaves the file
// unchanged, and at most the backup beside it. Lines may be of any length and hold any byte but the
// newline. A read error ends the lines like the end of the file; closeUpdate() then refuses to
// replace a file that was not read whole.
//
// Log: "cli.passwddb". Not copyable. The destructor closes; it does not unlock.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "accountdb/db_storage.h"

namespace orvs {

class DBFile : public DBStorage {
 public:
  // Closed, unlocked and writable.
  explicit DBFile(std::string storePath);
  ~DBFile() override;

  bool isFileBacked() const override { return true; }
  void setReadOnly(bool flag) override;
  // A writable store must be locked first.
  bool open() override;
  void close() override;
  bool lock() override;
  void unlock() override;
  bool first() override;
  bool next() override;
  bool reservedOp0() override { return false; }
  // Replaces the file and closes the store. The caller unlocks.
  bool closeUpdate(const std::list<std::string>& lines) override;

  // The text of the whole file. Nothing when the store is not open or the file cannot be read.
  std::optional<std::string> readText();
  // Replaces the file by `text`, keeps its attributes, and closes the store.
  bool replaceText(std::string_view text);

  virtual bool openPath(const std::string& text);
  // Takes only the ".lock" file, without waiting.
  virtual bool lockNoWait();

  static inline int lockCount = 0;           // ".lock" files that this process holds
  static inline bool fileRewritten = false;  // Required: set by closeUpdate; nothing reads it

 private:
  struct StreamCloser {
    void operator()(FILE* file) const { std::fclose(file); }
  };

  enum class Attributes { Dropped, Kept };

  bool readLine();
  bool closeUpdate(std::string_view text, Attributes attributes);

  std::unique_ptr<FILE, StreamCloser> stream;
  const char* openMode;
  off_t lineMark = 0;          // Required: where next() last started; nothing reads it
  bool readFailed = false;     // a line could not be read since the store was opened
  char* lineBuffer = nullptr;  // getdelim's own, kept from line to line
  std::size_t lineCapacity = 0;
};

}  // namespace orvs
