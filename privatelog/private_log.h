// The private log: every change is written here before and after it is made.
//
// FORMAT.md tells the bytes. One object for the process. The order of use is load, open, then the
// writers; Undo and Report read the file on their own. A record is started before the change and
// finished after it; nothing else may write in between.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "privatelog/log_record.h"
#include "services/command_options.h"

namespace orvs {
class PasswdDB;
class GroupDB;
}  // namespace orvs

class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();  // closes the log like close()
  PrivateLog(const PrivateLog&) = delete;
  PrivateLog& operator=(const PrivateLog&) = delete;

  // Fills the change table from the log. False when there is no usable log; the messages are its
  // own.
  bool loadPrivateLog(bool checkDomain);

  // Opens the log for writing, for appending or truncated with a fresh header. False when it cannot
  // be opened, is not a log that root alone can write, or is held by another run.
  bool openPrivateLog(bool append);

  // Brings what was written to the disk and gives the log up. Harmless when it is not open.
  void close();

  // Lookups in the change table; logarithmic or better, no allocation.
  bool hasInode(DevInode id) const;
  bool hasPath(DevInode id, std::string_view path) const;

  // Writes the start of a record. On false nothing may be changed: the log could not take it, errno
  // tells why.
  bool beginRecord(DevInode id, OwnerIds oldIds, std::string_view path, bool followed);

  // Completes the open record, enters it in the change table and counts it.
  void finishRecord(OwnerIds newIds);

  // Ends the open record without new ids: the change did not take place.
  void abandonRecord();

  // Another name of an inode that the table knows. Counts it. False as for beginRecord.
  bool addLinkRecord(DevInode id, std::string_view path);

  // An account that has been updated. Not counted.
  void addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds);
  void addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid);

  // Backs the newest section out, line by line. False when it had to stop; the driver ignores it.
  bool Undo(orvs::PasswdDB& passwdDB, orvs::GroupDB& groupDB, const CommandOptions& options);

  // Writes the table of all changes to `fileName`, or to standard output for "-".
  bool Report(const std::string& fileName);

  // The joined domain's name. False, with a message, when it cannot be had.
  static bool getCurrentDomain(std::string& domain);

  // Changes and links of this run; lines dealt with, in an undo.
  uint64_t changeCount = 0;
};

// The one log of the process.
extern PrivateLog privateLog;
