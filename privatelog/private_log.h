// The private log: every change is written here before and after it is made.
//
// FORMAT.md tells the bytes of the log and of its index. One object for the process. The order of
// use is load, open, then the writers; Undo and Report read the file on their own. A record is
// started before the change and finished after it; nothing else may write in between.
//
// With the setting idshift.hardened a file is known by what names it: file system, inode number and
// birth time. Without it the log's text is taken at its word, and device and inode number tell.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "entry/changed_devices.h"
#include "entry/entry_status.h"
#include "entry/file_systems.h"
#include "privatelog/account_plan.h"
#include "privatelog/attribute_change.h"
#include "privatelog/former_log.h"
#include "privatelog/loaded_log.h"
#include "privatelog/log_file.h"
#include "privatelog/log_header.h"
#include "privatelog/log_index.h"
#include "privatelog/log_line.h"
#include "privatelog/log_scan.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/run_lock.h"
#include "services/command_options.h"

namespace orvs {
class PasswdDB;
class GroupDB;
}  // namespace orvs

// An entry of the current directory at which the walk has looked.
struct LookedAt {
  const EntryStatus& status;
  std::string_view path;  // as the walk built it
  const char* name;       // its last component
  bool followed = false;  // `status` is that of the link's target
};

class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();  // as release(); errors are lost here
  PrivateLog(const PrivateLog&) = delete;
  PrivateLog& operator=(const PrivateLog&) = delete;

  // Reads the log. False when there is no usable log; the messages are its own.
  bool loadPrivateLog(bool checkDomain);

  // Opens the log for writing, for appending or begun anew with a fresh header; a log with records
  // is not cut then but kept under another name (former_log.h). False, with the reason in the
  // diagnosis log, when it cannot be opened, is not a log that root alone can write, its index does
  // not fit, or another run holds the run's lock; also when it changed since it was loaded, or is
  // there and could not be read: then its records are still good and must not be given up.
  bool openPrivateLog(bool append);

  // Brings what was written so far, and the file systems that were changed, to the disk. False with
  // errno when that failed.
  bool sync();

  // Syncs the log when the last sync is over a second old. Records do so by themselves; a walk asks
  // where it may find nothing to record for long.
  void syncIfDue();

  // Syncs and closes the log. False with errno when that failed. Harmless when it is not open.
  bool close();

  // The end of a run: closes the log if need be, puts a former log back when this one recorded
  // nothing, and gives the run's lock up. Reports read the log before that.
  void release();

  // What is known of the file system of an entry.
  const FileSystemFacts& fileSystemOf(const LookedAt& entry) {
    return fileSystems.of(entry.status.id.device, entry.name, entry.followed);
  }

  // Whether the file is known from this run or an earlier one, and whether by this path. No
  // allocation, constant time but for hasPath(), which goes through the names of the inode and
  // compares them with the log's own bytes, so it asks of a log that is open. prefetch() tells what
  // comes next.
  bool hasInode(const LookedAt& entry);
  bool hasPath(const LookedAt& entry);
  void prefetch(DevInode id) const;

  // Whether a file that is known is so from a run before this one, and accounts have moved by then.
  bool isOfFormerAccounts(const LookedAt& entry);

  // Writes the start of a record, with the ids that are meant. On false nothing may be changed: the
  // log could not take it, errno tells why. `heldMode`, where it is not 0, is the mode that has to
  // be put back behind the change. `entry` has to stay until the record is finished or abandoned.
  bool beginRecord(const LookedAt& entry, OwnerIds newIds, mode_t heldMode = 0);

  // Completes the open record, enters it in the change table and counts it. The current directory
  // is the one that holds the entry.
  void finishRecord(OwnerIds newIds);

  // The change took place, but the record is to stay as it is.
  void leaveRecordOpen() { changedDevices.note(current.id.device); }

  // Ends the open record without new ids: the change did not take place.
  void abandonRecord();

  // Lays down what an attribute of `entry` was, before it is changed: an ACL to `converted`, or a
  // capability by the change to `owner`. One at a time; a record of the change of owner may come in
  // between. On false nothing may be changed, as for beginRecord. endAttribute() tells what came of
  // it.
  bool beginAttribute(const LookedAt& entry, AttributeChange change);
  void endAttribute(bool isDone);

  // Whether this ACL of the file has been converted by this run or an earlier one; `present` is
  // what it is now.
  bool hasAttribute(const LookedAt& entry, AttributeKind what, std::string_view present);

  // Another name of an inode that the table knows. Counts it. False as for beginRecord.
  bool addLinkRecord(const LookedAt& entry);

  // Lays down, on the disk, which accounts are about to be updated, with everything that was
  // changed so far, and takes room for their lines. On nothing no account may be touched: errno
  // tells why.
  std::optional<AccountPlan> planAccountUpdates(std::vector<PlannedUpdate> updates);

  // An account that has been updated. Not counted. `plan` is the one that it was planned in.
  void addAccountUpdate(const PlannedUpdate& update, const AccountPlan& plan);
  void addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds);
  void addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid);

  // The plans of former runs that are still to be carried out, oldest first; of a log that was
  // loaded and is used. Without idshift.hardened there are none. A dry run, which loads no log,
  // asks loadOpenPlans() instead.
  const std::vector<AccountPlan>& openPlans() const { return plans; }
  const std::vector<AccountPlan>& loadOpenPlans();

  // Changes that failed in sections that are not undone, of entries below `top`: handed out once.
  std::vector<FailedEntry> takeFailedBelow(std::string_view top);

  // Whether `entry` is the very file of that record.
  bool isRecorded(const FailedEntry& failed, const LookedAt& entry) {
    return ::isRecorded(failed.vouched, failed.record.id.inode, entry.status, fileSystemOf(entry));
  }

  // Nothing of the plan is to be done any more. Does nothing when an update of this run could not
  // be recorded: the next run has to look at the plan once more.
  void closePlan(const AccountPlan& plan);

  // Backs the newest section out, line by line. False when it had to stop; the driver ignores it.
  bool Undo(orvs::PasswdDB& passwdDB, orvs::GroupDB& groupDB, const CommandOptions& options);

  // Writes the table of all changes to `fileName`, or to standard output for "-"; or JSON lines.
  bool Report(const std::string& fileName, bool asJson = false);

  static bool getCurrentDomain(std::string& domain) { return ::getCurrentDomain(domain); }

  // Changes and links of this run; lines dealt with, in an undo.
  uint64_t changeCount = 0;
  // Accounts that this run has updated, in an undo set back.
  uint64_t accountCount = 0;
  uint64_t aclCount = 0;  // ACLs, apart from those

 private:
  // What there is to know of the log before it is opened for writing.
  enum class LoadState { NotLoaded, Absent, Loaded, Unreadable, Misfit };

  bool loadFrom(bool checkDomain);
  void readSettings();

  bool openLocked(bool append);
  bool isUnchangedSinceLoad() const;
  bool startAfresh(bool logWasThere);
  bool continueLog();
  bool readAgain();
  bool openIndex();
  void enterCompleted(const PrivateLogRecord& record);

  void syncIfDueAt(int64_t second);
  InodeKey keyOf(const LookedAt& entry);
  int64_t birthOf(const LookedAt& entry);
  std::string ownDateText() const;
  bool startSection(size_t room);
  bool appendStart(const LookedAt& entry, IndexLine line, size_t room);
  bool isChanged(const KnownAttribute& known, std::string_view present);

  // A capability that is to be put back.
  struct CutCapability {
    PinnedEntry entry;
    std::string value;
    uint64_t position = 0;  // of its record
    uint8_t flags = 0;
  };
  std::vector<CutCapability> findCutCapabilities();
  void mend(const std::vector<CutCapability>& capabilities);

  bool appendLine(const IndexLine& line, size_t room);
  void completeLine(std::string_view text);

  IndexLine formatAccountLine(const PlannedUpdate& update);
  bool writeAccountLine(const PlannedUpdate& update);
  bool isLogged(const PlannedUpdate& update, const AccountPlan& plan) const;
  bool recordMadeUpdates();
  bool closePlansOfUndo();

  LoadedLog loaded;
  std::unique_ptr<LogScan> scan;  // of the load; its end is known
  LoadState loadState = LoadState::NotLoaded;
  struct stat seen = {};  // the log as it was loaded

  RunLock runLock;
  FormerLog former;
  LogFile file;
  LogIndex index;
  bool dateLinePending = false;
  bool hasRecorded = false;  // this run has begun a section
  bool isUndoing = false;
  bool hardened = true;
  mode_t creationMode = kReadableByAll;  // of the log and its index

  timespec now = {};  // when the record in work was begun
  FileSystems fileSystems;
  ChangedDevices changedDevices;
  PrivateLogRecord current;  // between beginRecord and finishRecord
  InodeKey currentKey;
  int64_t currentBirth = 0;
  uint64_t currentPathStart = 0;    // in the log
  KnownAttribute currentAttribute;  // between beginAttribute and endAttribute
  uint8_t currentAttributeFlags = 0;
  uint64_t currentAttributeDevice = 0;
  IndexReader formerAttributes;
  std::string writtenLine;  // reused for every record
  std::vector<AccountPlan> plans;
  bool hasUnrecordedUpdate = false;
  uint64_t runStart = 0;  // what stands in front of it in the log is of earlier runs
};

// The one log of the process.
extern PrivateLog privateLog;
