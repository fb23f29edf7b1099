#include "privatelog/private_log.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>

#include "privatelog/recorded_entry.h"
#include "privatelog/report/report_run.h"
#include "privatelog/undo/undo_run.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

PrivateLog privateLog;

namespace {

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

// Never 0.
uint16_t hashOf(std::string_view path) {
  return static_cast<uint16_t>(std::hash<std::string_view>()(path) | 1);
}

}  // namespace

PrivateLog::PrivateLog() = default;

PrivateLog::~PrivateLog() {
  release();
}

void PrivateLog::readSettings() {
  hardened = orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_HARDENED, true);
}

// ---- Loading

bool PrivateLog::loadPrivateLog(bool checkDomain) {
  readSettings();
  changeTable = ChangeTable();
  lastDateLine.clear();
  LogReader reader;
  if (!reader.open(paths::kPrivateLog)) {
    loadState = errno == ENOENT ? LoadState::Absent : LoadState::Unreadable;
    return false;
  }
  loadState = LoadState::Loaded;
  seen = reader.status();
  seenEnd = {};
  const bool isUsable = loadFrom(reader, checkDomain);
  if (reader.error() != 0)
    loadState = LoadState::Unreadable;
  return isUsable && loadState == LoadState::Loaded;
}

bool PrivateLog::loadFrom(LogReader& reader, bool checkDomain) {
  std::string domain;
  // Required: a log of another domain, or none at all, counts as no log. The driver then starts a
  // fresh one, whatever the messages advise.
  if (!getHeader(reader, domain) || (checkDomain && !verifyInDomain(domain)))
    return false;
  if (hardened && !lineFeedRanges.load(reader.descriptor())) {
    loadState = LoadState::Unreadable;
    return false;
  }
  while (const auto next = reader.next())
    loadLine(*next);
  noteEndOf(reader);
  return true;
}

void PrivateLog::loadLine(const LogLine& logLine) {
  if (hardened && lineFeedRanges.contains(logLine.offset))
    return;
  PrivateLogRecord record;
  switch (parseLogLine(logLine.text, record)) {
    case LineType::Date:
      lastDateLine = logLine.text;
      changeTable.insert({});  // no real file matches it
      break;
    case LineType::IncompleteChange:
      if (!checkPartialDone(record))
        break;
      [[fallthrough]];
    case LineType::Link:
    case LineType::Change:
    case LineType::FollowedChange:
      enter(record, logLine);
      break;
    case LineType::Ignored:
    case LineType::PasswdUpdate:
    case LineType::GroupUpdate:
      break;
  }
}

// Enters the record that was read from `logLine`. Only links can make an inode's records many.
void PrivateLog::enter(const PrivateLogRecord& record, const LogLine& logLine) {
  const auto inLine = static_cast<uint64_t>(record.path.data() - logLine.text.data());
  const bool isLink = logLine.text.starts_with('+');
  enter(record, logLine.offset + inLine, isLink ? hashOf(record.path) : uint16_t{0});
}

void PrivateLog::enter(const PrivateLogRecord& record, uint64_t pathStart, uint16_t pathHash) {
  changeTable.insert({record.id, record.oldIds, record.newIds, pathStart,
                      static_cast<uint32_t>(record.path.size()), pathHash});
}

bool PrivateLog::hasPath(DevInode id, std::string_view path) {
  const uint16_t hash = hashOf(path);
  return changeTable.any(id, [&](const LoggedChange& known) {
    return known.pathLength == path.size() && (known.pathHash == 0 || known.pathHash == hash) &&
           file.holds(known.pathOffset, path);
  });
}

void PrivateLog::noteEndOf(LogReader& reader) {
  const LogLine tail = reader.tail();
  seenEnd.contentEnd = reader.contentEnd();
  seenEnd.tailOffset = tail.offset;
  seenEnd.tail = tail.text;
}

// ---- Writing

// Room for `room` bytes, and the date line where this is the run's first line.
bool PrivateLog::startSection(size_t room) {
  if (!dateLinePending)
    return file.reserve(room);
  std::string dateLine;
  appendDateLine(dateLine, dateText());
  if (!file.reserve(dateLine.size() + room) || !file.append(dateLine))
    return false;
  dateLinePending = false;
  hasRecorded = true;
  return true;
}

// Appends `writtenLine`, which holds `path`, with room for its end.
bool PrivateLog::appendStart(std::string_view path, size_t endRoom) {
  isRemembered = false;
  if (!startSection(writtenLine.size() + endRoom))
    return false;
  const uint64_t offset = file.end();
  if (!isLineOpen)
    lineStart = offset;
  if (hardened && path.find('\n') != std::string_view::npos &&
      !rememberLine(offset + writtenLine.size()))
    return false;
  if (file.append(writtenLine))
    return true;
  const int error = errno;
  if (isRemembered && lineFeedRanges.trim(file.descriptor(), offset))
    lastRangeEnd = std::min(lastRangeEnd, offset);
  errno = error;
  return false;
}

// Remembers the line in work up to `end`.
bool PrivateLog::rememberLine(uint64_t end) {
  const uint64_t begin =
      lineStart == lastRememberedEnd ? lastRangeEnd : std::max(lineStart, lastRangeEnd);
  if (!lineFeedRanges.add(file.descriptor(), begin, end - begin))
    return false;
  lastRangeEnd = end;
  isRemembered = true;
  return true;
}

void PrivateLog::completeLine(std::string_view text) {
  if (!text.empty())
    file.appendKept(text);
  if (isRemembered)
    lastRememberedEnd = file.end();
  isLineOpen = false;
  file.syncIfDue();
}

bool PrivateLog::beginRecord(DevInode id, OwnerIds oldIds, std::string_view path, bool followed) {
  writtenLine.clear();
  appendChangeStart(writtenLine, id, oldIds, path, followed);
  if (!appendStart(path, kMaxChangeEnd))
    return false;
  isLineOpen = true;
  current = {id, oldIds, {}, path, false};
  currentPathStart = file.end() - writtenLine.size() + (followed ? 1 : 0);
  return true;
}

void PrivateLog::finishRecord(OwnerIds newIds) {
  current.newIds = newIds;
  enter(current, currentPathStart);
  writtenLine.clear();
  appendChangeEnd(writtenLine, newIds);
  completeLine(writtenLine);
  changedDevices.note(current.id.device);
  ++changeCount;
}

// With colons in its path the ended line has the fields of a change, and its owner chose them.
void PrivateLog::abandonRecord() {
  if (hardened && !isRemembered && current.path.find(':') != std::string_view::npos)
    rememberLine(file.end());  // where this fails nothing more can be done
  completeLine("\n");
}

bool PrivateLog::addLinkRecord(DevInode id, std::string_view path) {
  writtenLine.clear();
  appendLinkLine(writtenLine, id, path);
  if (!appendStart(path, 0))
    return false;
  completeLine({});
  ++changeCount;
  return true;
}

// The update is synced by itself, so its record goes to the disk ahead of it: an undo after a power
// cut could not set the account back, only its entries. Three syncs for an account instead of two.
bool PrivateLog::preparePasswdUpdateRecord(const std::string& name,
                                           OwnerIds oldIds,
                                           OwnerIds newIds) {
  startAccountText();
  appendPasswdUpdateLine(writtenLine, name, oldIds, newIds);
  return file.prepare(writtenLine) && file.sync();
}

bool PrivateLog::prepareGroupUpdateRecord(const std::string& name,
                                          uint32_t oldGid,
                                          uint32_t newGid) {
  startAccountText();
  appendGroupUpdateLine(writtenLine, name, oldGid, newGid);
  return file.prepare(writtenLine) && file.sync();
}

void PrivateLog::addPasswdUpdateRecord(const std::string& name, OwnerIds oldIds, OwnerIds newIds) {
  startAccountText();
  appendPasswdUpdateLine(writtenLine, name, oldIds, newIds);
  writeAccountText();
}

void PrivateLog::addGroupUpdateRecord(const std::string& name, uint32_t oldGid, uint32_t newGid) {
  startAccountText();
  appendGroupUpdateLine(writtenLine, name, oldGid, newGid);
  writeAccountText();
}

// An account's record is one piece with the date line that it may need.
void PrivateLog::startAccountText() {
  writtenLine.clear();
  if (dateLinePending)
    appendDateLine(writtenLine, dateText());
}

// The account has been updated already, so the text is kept even when the log cannot take it now.
void PrivateLog::writeAccountText() {
  isRemembered = false;
  dateLinePending = false;
  hasRecorded = true;
  completeLine(writtenLine);
}

// ---- Those who read it

bool PrivateLog::Undo(orvs::PasswdDB& passwdDB,
                      orvs::GroupDB& groupDB,
                      const CommandOptions& options) {
  isUndoing = true;
  const bool preserveBits =
      orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_PRESERVE_EXECUTION_BITS, false);
  return undoNewestSection({file, changedDevices, hardened ? &lineFeedRanges : nullptr,
                            lastDateLine, passwdDB, groupDB, options.pretend, preserveBits,
                            changeCount});
}

bool PrivateLog::Report(const std::string& fileName) {
  return writeReport(fileName, changeTable);
}
