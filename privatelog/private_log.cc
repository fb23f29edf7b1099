#include "privatelog/private_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>

#include "privatelog/report/report_run.h"
#include "privatelog/undo/undo_run.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

PrivateLog privateLog;

namespace {

// Two inodes that were created within one tick of the kernel's clock can have the same number and
// birth time, if the first was removed in between.
constexpr int64_t kYoungestAge = 10'000'000;
constexpr int64_t kNanoseconds = 1'000'000'000;

// The facts used without `hardened`, where no file system is asked.
const FileSystemFacts kNoFacts;

std::string dateText() {
  const time_t now = time(nullptr);
  const tm* local = localtime(&now);
  if (local == nullptr)
    return "<EOVERFLOW>";
  char text[100];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"  // no locale is ever set: the C locale's has 4 digits
  return {text, strftime(text, sizeof text, "%c", local)};
#pragma GCC diagnostic pop
}

}  // namespace

PrivateLog::PrivateLog() = default;

PrivateLog::~PrivateLog() {
  release();
}

void PrivateLog::readSettings() {
  orvs::Properties& settings = orvs::Props(false, false);
  hardened = settings.getBool(orvs::PN::IDSHIFT_HARDENED, true);
  const bool isStrict = settings.getBool(orvs::PN::IDSHIFT_STRICT, false);
  creationMode = isStrict ? kReadableByRoot : kReadableByAll;
  index.setCreationMode(creationMode);
}

// ---- Loading

bool PrivateLog::loadPrivateLog(bool checkDomain) {
  readSettings();
  loaded = LoadedLog();
  scan = std::make_unique<LogScan>();
  switch (scan->open(hardened)) {
    case LogScan::Opened::No:
      loadState = errno == ENOENT ? LoadState::Absent : LoadState::Unreadable;
      return false;
    case LogScan::Opened::Misfit:
      loadState = LoadState::Misfit;
      reportMisfit(*scan);
      return false;
    case LogScan::Opened::Yes:
      break;
  }
  loadState = LoadState::Loaded;
  seen = scan->text().status();
  const bool isUsable = loadFrom(checkDomain);
  if (scan->error() != 0)
    loadState = LoadState::Unreadable;
  return isUsable && loadState == LoadState::Loaded;
}

bool PrivateLog::loadFrom(bool checkDomain) {
  std::string domain;
  // Required: a log of another domain, or without a header, counts as no log. The driver then
  // starts a fresh one, whatever the messages advise.
  if (!getHeader(scan->text(), domain) || (checkDomain && !verifyInDomain(domain)))
    return false;
  loadLines(*scan, loaded);
  if (scan->isMisfit()) {
    loadState = LoadState::Misfit;
    reportMisfit(*scan);
  }
  reportUnvouched(*scan);
  return true;
}

// ---- Lookups

InodeKey PrivateLog::keyOf(const LookedAt& entry) {
  const FileSystemFacts& facts = hardened ? fileSystemOf(entry) : kNoFacts;
  return {loaded.classes.ofDevice(entry.status.id.device, facts).front(), entry.status.id.inode};
}

bool PrivateLog::hasInode(const LookedAt& entry) {
  if (loaded.table.size() == 0)
    return false;
  const FileSystemFacts& facts = hardened ? fileSystemOf(entry) : kNoFacts;
  const int64_t birth = facts.keepsBirth ? entry.status.birth : 0;
  for (const DeviceClass number : loaded.classes.ofDevice(entry.status.id.device, facts)) {
    const bool isKnown =
        loaded.table.any({number, entry.status.id.inode}, [birth](const auto& known) {
          return known.birth == birth || known.birth == 0 || birth == 0;
        });
    if (isKnown)
      return true;
  }
  return false;
}

// The newest record decides: a change that was made again is in a section of its own.
bool PrivateLog::isChangeLost(const LookedAt& entry, OwnerIds newIds) {
  const FileSystemFacts& facts = hardened ? fileSystemOf(entry) : kNoFacts;
  const EntryStatus& status = entry.status;
  if (!facts.keepsBirth || status.birth == 0)
    return false;
  bool isLost = false;
  uint64_t newest = 0;
  for (const DeviceClass number : loaded.classes.ofDevice(status.id.device, facts)) {
    loaded.table.forEach({number, status.id.inode}, [&](const LoggedChange& known) {
      if (known.birth != status.birth || known.newIds == known.oldIds || known.pathOffset < newest)
        return;
      newest = known.pathOffset;
      isLost = known.oldIds == status.owner && known.newIds == newIds &&
               loaded.isLineInOpenSection(known.pathOffset);
    });
  }
  return isLost;
}

bool PrivateLog::isOfFormerAccounts(const LookedAt& entry) {
  const bool haveMoved = std::any_of(loaded.accounts.begin(), loaded.accounts.end(),
                                     [](const LoggedAccount& line) { return !line.isMarked; });
  return haveMoved && loaded.table.any(keyOf(entry), [this](const LoggedChange& known) {
    return known.pathOffset < runStart;
  });
}

void PrivateLog::prefetch(DevInode id) const {
  if (const auto number = loaded.classes.latestOf(id.device))
    loaded.table.prefetch({*number, id.inode});
}

bool PrivateLog::hasPath(const LookedAt& entry) {
  const uint16_t hash = ChangeTable::hashOf(entry.path);
  const FileSystemFacts& facts = hardened ? fileSystemOf(entry) : kNoFacts;
  for (const DeviceClass number : loaded.classes.ofDevice(entry.status.id.device, facts)) {
    const bool isKnown = loaded.table.any({number, entry.status.id.inode}, [&](const auto& known) {
      return known.pathLength == entry.path.size() &&
             (known.pathHash == 0 || known.pathHash == hash) &&
             file.holds(known.pathOffset, entry.path);
    });
    if (isKnown)
      return true;
  }
  return false;
}

// ---- Writing

// With `hardened` two sections never have the same date, because people tell sections apart by
// their dates. A run within the second of an older section waits for the next second.
std::string PrivateLog::ownDateText() const {
  constexpr int kMostSeconds = 2;
  std::string text = dateText();
  for (int waited = 0; hardened && waited < kMostSeconds && loaded.dates.contains(text); ++waited) {
    // time() may be a tick behind CLOCK_REALTIME.
    const timespec next = {time(nullptr) + 1, kYoungestAge};
    clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &next, nullptr);
    text = dateText();
  }
  return text;
}

// Reserves `room` bytes, and begins the section with its date line if the run has none yet.
bool PrivateLog::startSection(size_t room) {
  if (!dateLinePending)
    return file.reserve(room);
  std::string dateLine;
  appendDateLine(dateLine, ownDateText());
  if (!file.reserve(dateLine.size() + room))
    return false;
  const std::string_view line = std::string_view(dateLine).substr(0, dateLine.size() - 1);
  if (!index.addSection(line, file.end()) || !file.append(dateLine)) {
    index.takeBack();
    return false;
  }
  index.keep();
  dateLinePending = false;
  hasRecorded = true;
  return true;
}

// Appends the index record and then `writtenLine`, a start or a whole line, with `room` for the
// end.
bool PrivateLog::appendLine(const IndexLine& line, size_t room) {
  std::string_view start = writtenLine;
  if (start.ends_with('\n'))
    start.remove_suffix(1);
  if (index.addLine(line, file.end(), start) && file.reserve(writtenLine.size() + room) &&
      file.append(writtenLine)) {
    index.keep();
    return true;
  }
  index.takeBack();
  return false;
}

// The birth time for a record; 0 when it does not identify the inode. On an overlay even a young
// inode has its birth time recorded, because the copy was made a moment ago for this record.
// Whoever replaces it by a file with the same number within one tick owns that file, and gains
// nothing when it is taken for the recorded one.
int64_t PrivateLog::birthOf(const LookedAt& entry) {
  const FileSystemFacts& facts = fileSystemOf(entry);
  if (!facts.keepsBirth || entry.status.birth == 0)
    return 0;
  const int64_t age = now.tv_sec * kNanoseconds + now.tv_nsec - entry.status.birth;
  return age >= kYoungestAge || facts.copiesUp ? entry.status.birth : 0;
}

bool PrivateLog::appendStart(const LookedAt& entry, IndexLine line, size_t room) {
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  const uint64_t device = entry.status.id.device;
  if (!startSection(writtenLine.size() + room))
    return false;
  if (!index.addFileSystem(device, fileSystemOf(entry))) {
    index.takeBack();
    return false;
  }
  line.nameLength = static_cast<uint32_t>(entry.path.size());
  line.birth = birthOf(entry);
  currentBirth = line.birth;
  return appendLine(line, room);
}

bool PrivateLog::beginRecord(const LookedAt& entry, OwnerIds newIds, mode_t heldMode) {
  writtenLine.clear();
  appendChangeStart(writtenLine, entry.status.id, entry.status.owner, entry.path, entry.followed);
  IndexLine line;
  line.kind = entry.followed ? IndexKind::Followed : IndexKind::Change;
  line.newIds = newIds;
  if (heldMode != 0) {
    line.flags = kLineHoldsMode;
    line.mode = static_cast<uint16_t>(heldMode & ALLPERMS);
    line.modeTime = static_cast<uint32_t>(time(nullptr));
  }
  if (!appendStart(entry, line, kMaxChangeEnd))
    return false;
  current = {entry.status.id, entry.status.owner, newIds, entry.path, false};
  currentKey = keyOf(entry);
  currentPathStart = file.end() - writtenLine.size() + (entry.followed ? 1 : 0);
  return true;
}

void PrivateLog::finishRecord(OwnerIds newIds) {
  loaded.table.insert({currentKey, hardened ? currentBirth : 0, current.oldIds, newIds,
                       currentPathStart, static_cast<uint32_t>(current.path.size()), 0});
  writtenLine.clear();
  appendChangeEnd(writtenLine, newIds);
  completeLine(writtenLine);
  changedDevices.note(current.id.device);
  ++changeCount;
}

// The flag is set first: after a kill in between, the line is still open, and the next run looks at
// the disk.
void PrivateLog::abandonRecord() {
  index.flagLast(kLineFailed);
  completeLine("\n");
}

bool PrivateLog::addLinkRecord(const LookedAt& entry) {
  writtenLine.clear();
  appendLinkLine(writtenLine, entry.status.id, entry.path);
  IndexLine line;
  line.kind = IndexKind::Link;
  if (!appendStart(entry, line, 0))
    return false;
  completeLine({});
  ++changeCount;
  return true;
}

void PrivateLog::completeLine(std::string_view text) {
  if (!text.empty())
    file.appendKept(text);
  syncIfDueAt(now.tv_sec);
}

// ---- Those who read it

std::vector<FailedEntry> PrivateLog::takeFailedBelow(std::string_view top) {
  const std::string inside = std::string(top) + (top.ends_with('/') ? "" : "/");
  std::vector<FailedEntry>& all = loaded.failedEntries;
  const auto below = std::stable_partition(all.begin(), all.end(), [&](const FailedEntry& failed) {
    return !failed.path.starts_with(inside);
  });
  std::vector<FailedEntry> taken(std::make_move_iterator(below),
                                 std::make_move_iterator(all.end()));
  all.erase(below, all.end());
  return taken;
}

bool PrivateLog::Undo(orvs::PasswdDB& passwdDB,
                      orvs::GroupDB& groupDB,
                      const CommandOptions& options) {
  isUndoing = true;
  if (hardened && !closePlansOfUndo())
    return false;
  const bool preserveBits =
      orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_PRESERVE_EXECUTION_BITS, false);
  const bool preserveCapabilities =
      orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_PRESERVE_CAPABILITIES, false);
  return undoNewestSection({file, index, fileSystems, changedDevices, loaded, hardened, passwdDB,
                            groupDB, options.pretend, preserveBits, preserveCapabilities,
                            changeCount, accountCount, aclCount});
}

bool PrivateLog::Report(const std::string& fileName, bool asJson) {
  return writeReport(fileName, loaded, hardened, asJson);
}
