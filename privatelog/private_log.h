// The private log: every change is written here before and after it is made.
//
// FORMAT.md describes the bytes of the log and of its index. There is one object in the process.
// The order of use is load, open, then the writers; Undo and Report read the file by themselves. A
// record is begun before its change and finished after it; no other record may be begun in between.
//
// With the setting idshift.hardened a file is identified by file system, inode number and birth
// time, from the index. Without it the log's text is trusted, and device and inode number identify
// a file.
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

// An entry of the current directory whose status was read.
struct LookedAt {
  const EntryStatus& status;
  std::string_view path;  // as the walk built it
  const char* name;       // its last component
  bool followed = false;  // `status` is that of the link's target
};

class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();  // calls release() and ignores its errors
  PrivateLog(const PrivateLog&) = delete;
  PrivateLog& operator=(const PrivateLog&) = delete;

  // Reads the log. False, with messages, when there is no usable log.
  bool loadPrivateLog(bool checkDomain);

  // Opens the log for writing: to append, or begun anew with a header. A log with records is then
  // kept under another name (former_log.h). False, with the reason in the diagnosis log, when
  // another run holds the lock, the log cannot be opened, others than root can write it, or its
  // index does not fit. False also when the log has changed since it was loaded or could not be
  // read: its records are still needed and must not be given up.
  bool openPrivateLog(bool append);

  // Syncs what was written so far and the file systems that were changed. False with errno.
  bool sync();

  // Syncs the log when the clock shows another second than at the last sync. Records call this
  // themselves; a walk calls it because it may find nothing to record for long.
  void syncIfDue();

  // Syncs and closes the log. False with errno. Does nothing when no log is open.
  bool close();

  // Ends a run: closes the log if it is open, puts a former log back when this run recorded
  // nothing, and drops the run's lock.
  void release();

  // The facts of the file system of an entry.
  const FileSystemFacts& fileSystemOf(const LookedAt& entry) {
    return fileSystems.of(entry.status.id.device, entry.name, entry.followed);
  }

  // Whether the file is known from this run or an earlier one, and whether by this path. Both
  // allocate nothing. hasInode() takes constant time. hasPath() goes through the recorded names of
  // the inode and compares them with the bytes of the log, which must be open. prefetch() announces
  // an inode that will be asked about next.
  bool hasInode(const LookedAt& entry);
  bool hasPath(const LookedAt& entry);
  void prefetch(DevInode id) const;

  // Whether the newest record of a known file gave it `newIds`, but a power cut lost the change:
  // the file still is as it was before that run.
  bool isChangeLost(const LookedAt& entry, OwnerIds newIds);

  // Whether a known file was recorded by an earlier run, and the log has account updates that are
  // not undone.
  bool isOfFormerAccounts(const LookedAt& entry);

  // Writes the start of a record with the intended ids. On false, with errno, the log could not
  // take the record, and the entry must not be changed. `heldMode`, unless 0, is the mode to put
  // back after the change. `entry` must stay valid until the record is finished or abandoned.
  bool beginRecord(const LookedAt& entry, OwnerIds newIds, mode_t heldMode = 0);

  // Completes the open record, enters it in the change table and counts it. The current directory
  // must be the one that holds the entry.
  void finishRecord(OwnerIds newIds);

  // The change was made, but the record stays open.
  void leaveRecordOpen() { changedDevices.note(current.id.device); }

  // Ends the open record without new ids: the change was not made.
  void abandonRecord();

  // Records the value of an attribute of `entry` before it is changed: an ACL that becomes
  // `converted`, or a capability that the change to `owner` clears. On false nothing may be
  // changed, as for beginRecord(). endAttribute() records whether the change was made. One
  // attribute at a time; a record of a change of owner may be begun in between.
  bool beginAttribute(const LookedAt& entry, AttributeChange change);
  void endAttribute(bool isDone);

  // Whether this run or an earlier one has converted this ACL of the file; `present` is its value
  // now.
  bool hasAttribute(const LookedAt& entry, AttributeKind what, std::string_view present);

  // Records and counts another name of a known inode. False as for beginRecord().
  bool addLinkRecord(const LookedAt& entry);

  // Syncs all changes made so far, then writes and syncs the plan of these updates, and reserves
  // room for their lines. On nothing, with errno, no account may be changed.
  std::optional<AccountPlan> planAccountUpdates(std::vector<PlannedUpdate> updates);

  // Records an account that was updated, as planned in `plan`, and counts it in accountCount.
  void addAccountUpdate(const PlannedUpdate& update, const AccountPlan& plan);
  void addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds);
  void addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid);

  // The open plans of former runs, oldest first, once the log was opened to append. Without
  // idshift.hardened there are none. A dry run opens no log; it calls loadOpenPlans() instead.
  const std::vector<AccountPlan>& openPlans() const { return plans; }
  const std::vector<AccountPlan>& loadOpenPlans();

  // The changes that failed in sections that are not undone, of entries below `top`. Each is handed
  // out once.
  std::vector<FailedEntry> takeFailedBelow(std::string_view top);

  // Whether `entry` is the recorded file.
  bool isRecorded(const FailedEntry& failed, const LookedAt& entry) {
    return ::isRecorded(failed.vouched, failed.record.id.inode, entry.status, fileSystemOf(entry));
  }

  // Closes a plan of which nothing is left to be done. Leaves the plan open when an update of this
  // run could not be recorded or synced: the next run then looks at the plan again.
  void closePlan(const AccountPlan& plan);

  // Backs the newest section out, line by line. False when the undo had to stop early.
  bool Undo(orvs::PasswdDB& passwdDB, orvs::GroupDB& groupDB, const CommandOptions& options);

  // Writes the table of all changes, or JSON lines, to `fileName`; "-" is standard output.
  bool Report(const std::string& fileName, bool asJson = false);

  static bool getCurrentDomain(std::string& domain) { return ::getCurrentDomain(domain); }

  // Changes and links that this run has recorded; in an undo, lines dealt with.
  uint64_t changeCount = 0;
  // Account updates that this run has recorded, also those that a killed run had made; in an undo,
  // accounts set back.
  uint64_t accountCount = 0;
  uint64_t aclCount = 0;  // ACLs converted, or in an undo set back; not in changeCount

 private:
  // What loading has found out about the log.
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

  // A capability that is still to be put back.
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
  std::unique_ptr<LogScan> scan;  // of the load; has been read to its end
  LoadState loadState = LoadState::NotLoaded;
  struct stat seen = {};  // status of the log when it was loaded

  RunLock runLock;
  FormerLog former;
  LogFile file;
  LogIndex index;
  bool dateLinePending = false;
  bool hasRecorded = false;  // this run has begun a section or written a plan
  bool isUndoing = false;
  bool hardened = true;
  mode_t creationMode = kReadableByAll;  // of the log and its index

  timespec now = {};  // when the present record was begun
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
  uint64_t runStart = 0;  // end of the log when this run opened it
};

// The one log of the process.
extern PrivateLog privateLog;
