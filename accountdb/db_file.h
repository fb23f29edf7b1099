// The store over one flat file: the only one that ever writes an account file.
//
// An update is: construct, lock(), open(), read the lines, closeUpdate(lines), unlock(); or, for a
// change that keeps attributes and every byte, readText() and replaceText(text) in their places.
// The lock has two layers: the system-wide one of lckpwdf(), held while this process holds any
// ".lock" file, and the ".lock" file of each path (lock_file.h). lckpwdf() waits for 15 seconds,
// but once a process: when it waited in vain, a lock that is still held fails at once. The file is
// replaced by rename, after a backup named with "-"; whatever fails leaves the file unchanged, and
// only the backup beside it.
//
// The stream is a stdio one and close-on-exec; it is opened as a stream for reading (and writing)
// would be, and lines may be of any length and hold any byte but the newline. A read error ends the
// walk like the end of the file, but closeUpdate() then refuses to replace what was not read whole.
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
  // Replaces the file and closes the store; the caller unlocks.
  bool closeUpdate(const std::list<std::string>& lines) override;

  // The whole file, whatever lines it has. Nothing when it is not open or cannot be read.
  std::optional<std::string> readText();
  // As closeUpdate, with this text and the attributes of the former file.
  bool replaceText(std::string_view text);

  virtual bool openPath(const std::string& text);
  // Takes the ".lock" file alone, without waiting.
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
