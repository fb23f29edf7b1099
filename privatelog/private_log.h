// The private log: every change is written here before and after it is made.
//
// FORMAT.md tells the bytes. One object for the process. The order of use is load, open, then the
// writers; Undo and Report read the file on their own. A record is started before the change and
// finished after it; nothing else may write in between.
//
// With the setting idshift.hardened, records whose path holds a line feed, and failed ones whose
// path holds a colon, are remembered beside the log (line_feed_ranges.h); lines that begin inside
// such a record are not loaded.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "entry/changed_devices.h"
#include "entry/file_ids.h"
#include "privatelog/change_table.h"
#include "privatelog/former_log.h"
#include "privatelog/line_feed_ranges.h"
#include "privatelog/log_file.h"
#include "privatelog/log_header.h"
#include "privatelog/log_line.h"
#include "privatelog/log_reader.h"
#include "privatelog/log_recovery.h"
#include "privatelog/run_lock.h"
#include "services/command_options.h"

namespace orvs {
class PasswdDB;
class GroupDB;
}  // namespace orvs

class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();  // as release(); errors are lost here
  PrivateLog(const PrivateLog&) = delete;
  PrivateLog& operator=(const PrivateLog&) = delete;

  // Fills the change table from the log. False when there is no usable log; the messages are its
  // own.
  bool loadPrivateLog(bool checkDomain);

  // Opens the log for writing, for appending or begun anew with a fresh header; a log with records
  // is not cut then but kept under another name (former_log.h). False, with the reason in the
  // diagnosis log, when it cannot be opened, is not a log that root alone can write, or another run
  // holds the run's lock; also when it changed since it was loaded, or is there and could not be
  // read: then its records are still good and must not be given up.
  bool openPrivateLog(bool append);

  // Brings what was written so far, and the file systems that were changed, to the disk. False with
  // errno when that failed.
  bool sync();

  // Syncs the log when the last sync is over a second old. Records do so by themselves; a walk asks
  // where it may find nothing to record for long.
  void syncIfDue() { file.syncIfDue(); }

  // Syncs and closes the log. False with errno when that failed. Harmless when it is not open.
  bool close();

  // The end of a run: closes the log if need be, puts a former log back when this one recorded
  // nothing, and gives the run's lock up. Reports read the log before that.
  void release();

  // Lookups in the change table; no allocation, constant time but for hasPath(), which goes through
  // the names of the inode. Paths are compared with the log's own bytes, so hasPath() asks of a log
  // that is open. prefetch() tells what comes next.
  void prefetch(DevInode id) const { changeTable.prefetch(id); }
  bool hasInode(DevInode id) const { return changeTable.hasInode(id); }
  bool hasPath(DevInode id, std::string_view path);

  // Writes the start of a record. On false nothing may be changed: the log could not take it, errno
  // tells why. `path` has to stay until the record is finished or abandoned.
  bool beginRecord(DevInode id, OwnerIds oldIds, std::string_view path, bool followed);

  // Completes the open record, enters it in the change table and counts it. The current directory
  // is the one that holds the entry.
  void finishRecord(OwnerIds newIds);

  // The change took place, but the record is to stay as it is.
  void leaveRecordOpen() { changedDevices.note(current.id.device); }

  // Ends the open record without new ids: the change did not take place.
  void abandonRecord();

  // Another name of an inode that the table knows. Counts it. False as for beginRecord.
  bool addLinkRecord(DevInode id, std::string_view path);

  // Lays an account's record down before the update, on the disk but invisible to readers, for the
  // run that comes after a kill (prepared_account.h). On false the account must not be updated: the
  // log could not take the record, errno tells why. A failed update is followed by
  // dropPreparedRecord().
  bool preparePasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds);
  bool prepareGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid);
  void dropPreparedRecord() { file.dropPrepared(); }

  // An account that has been updated. Not counted.
  void addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds);
  void addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid);

  // Backs the newest section out, line by line. False when it had to stop; the driver ignores it.
  bool Undo(orvs::PasswdDB& passwdDB, orvs::GroupDB& groupDB, const CommandOptions& options);

  // Writes the table of all changes to `fileName`, or to standard output for "-".
  bool Report(const std::string& fileName);

  static bool getCurrentDomain(std::string& domain) { return ::getCurrentDomain(domain); }

  // Changes and links of this run; lines dealt with, in an undo.
  uint64_t changeCount = 0;

 private:
  // What there is to know of the file before it is opened for writing.
  enum class LoadState { NotLoaded, Absent, Loaded, Unreadable };

  bool loadFrom(LogReader& reader, bool checkDomain);
  void loadLine(const LogLine& logLine);
  void enter(const PrivateLogRecord& record, const LogLine& logLine);
  void enter(const PrivateLogRecord& record, uint64_t pathStart, uint16_t pathHash = 0);
  void noteEndOf(LogReader& reader);
  void readSettings();

  bool openLocked(bool append);
  bool isUnchangedSinceLoad() const;
  bool startAfresh();
  bool continueLog();

  bool startSection(size_t room);
  bool appendStart(std::string_view path, size_t endRoom);
  bool rememberLine(uint64_t end);
  void completeLine(std::string_view text);
  void startAccountText();
  void writeAccountText();

  ChangeTable changeTable;
  PrivateLogRecord current;       // between beginRecord and finishRecord
  uint64_t currentPathStart = 0;  // in the log
  std::string lastDateLine;       // newest date line seen by the load, with its "!"
  RunLock runLock;
  FormerLog former;
  LogFile file;
  bool dateLinePending = false;
  bool hasRecorded = false;  // this run has begun a section
  std::string writtenLine;   // reused for every record

  LoadState loadState = LoadState::NotLoaded;
  struct stat seen = {};  // the file as it was loaded
  LogEnd seenEnd;
  ChangedDevices changedDevices;
  bool isUndoing = false;

  bool hardened = true;
  LineFeedRanges lineFeedRanges;
  // Consecutive records in the ranges share one: where it ends, and where the last record does.
  uint64_t lastRangeEnd = 0;
  uint64_t lastRememberedEnd = 0;
  bool isRemembered = false;  // the record in work is in the ranges
  bool isLineOpen = false;    // a record was begun and neither finished nor abandoned
  uint64_t lineStart = 0;     // of the record in work, or of the open one that it continues
};

// The one log of the process.
extern PrivateLog privateLog;
