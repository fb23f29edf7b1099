#include "privatelog/loaded_log.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "privatelog/recorded_entry.h"
#include "privatelog/torn_tail.h"

namespace {

class Loader {
 public:
  explicit Loader(LoadedLog& target) : loaded(target) {}

  void take(const ScannedLine& line);
  void takeTail(const LogScan& scan);
  void takeAttributes(std::vector<LoggedAttribute> attributes);

 private:
  void takeDate(const ScannedLine& line);
  static bool wentThrough(const ScannedLine& line);
  void enter(const ScannedLine& line);
  void noteIds(const ScannedLine& line);
  void noteMarked(std::string_view text);
  void noteAccount(const std::string& line);
  void noteBoth(OwnerIds oldIds, OwnerIds newIds);
  void noteGroup(uint32_t oldGid, uint32_t newGid);
  void noteHeldMode(const ScannedLine& line);
  void noteAccountLine(const ScannedLine& line);
  void noteFailed(const ScannedLine& line);
  void noteSection(const ScannedLine& line);

  LoadedLog& loaded;
  bool isSectionUndone = false;
  std::map<std::string, uint64_t> literalDates;  // offset of the first line with a text
};

void Loader::take(const ScannedLine& line) {
  noteIds(line);
  noteHeldMode(line);
  noteAccountLine(line);
  noteFailed(line);
  noteSection(line);
  switch (line.type) {
    case LineType::Date:
      takeDate(line);
      break;
    case LineType::IncompleteChange:
      if (!wentThrough(line))
        break;
      [[fallthrough]];
    case LineType::Link:
    case LineType::Change:
    case LineType::FollowedChange:
      enter(line);
      break;
    case LineType::Ignored:
    case LineType::PasswdUpdate:
    case LineType::GroupUpdate:
      break;
  }
}

// A line that a killed run left open does not count yet, but its ids do.
void Loader::takeTail(const LogScan& scan) {
  const ScanEnd& end = scan.end();
  if (end.tailRecord) {
    ScannedLine line;
    line.vouched = end.tailRecord;
    if (const auto start =
            parseVouchedStart(line.vouched->line, scan.indexReader().seed(), end.tail)) {
      line.record = start->record;
      noteIds(line);
    }
  } else if (const auto torn = parseTornChange(end.tail)) {
    noteBoth(torn->record.oldIds, torn->record.oldIds);
  }
}

// Required: of literal date lines with equal text the first begins the section. Two runs within one
// second wrote such lines, and one undo backs out both.
void Loader::takeDate(const ScannedLine& line) {
  loaded.newestDate = line.text;
  loaded.newestOffset = line.offset;
  loaded.newestPosition = line.vouched ? line.vouched->position : 0;
  loaded.dates.insert(std::string(line.text.substr(1)));
  if (!line.vouched)
    loaded.newestOffset = literalDates.try_emplace(loaded.newestDate, line.offset).first->second;
}

// A vouched change counts as made unless the path leads to the recorded inode and that has its old
// ids: to convert a file twice is worse than not to convert it.
bool Loader::wentThrough(const ScannedLine& line) {
  if (!line.vouched)
    return checkPartialDone(line.record);
  EntryStatus status;
  const PrivateLogRecord& record = line.record;
  const bool isThere = findStatus(std::string(record.path), line.isFollowed(), status) &&
                       status.id.inode == record.id.inode &&
                       (line.vouched->line.birth == 0 || line.vouched->line.birth == status.birth);
  return !isThere || status.owner != record.oldIds;
}

// Only hard links can give an inode many records, so only they have a hash.
void Loader::enter(const ScannedLine& line) {
  const std::string_view path = line.record.path;
  const auto inLine = static_cast<uint64_t>(path.data() - line.text.data());
  const bool isLink = line.type == LineType::Link;
  loaded.table.insert({loaded.keyOf(line), line.vouched ? line.vouched->line.birth : 0,
                       line.record.oldIds, line.record.newIds, line.offset + inLine,
                       static_cast<uint32_t>(path.size()),
                       isLink ? ChangeTable::hashOf(path) : uint16_t{0}});
}

void Loader::noteIds(const ScannedLine& line) {
  if (line.vouched) {
    const IndexKind kind = line.vouched->line.kind;
    if (kind == IndexKind::Group)
      noteGroup(line.record.oldIds.gid, line.record.newIds.gid);
    else if (kind != IndexKind::Section && kind != IndexKind::Link)
      noteBoth(line.record.oldIds, line.record.newIds);
    return;
  }
  switch (line.type) {
    case LineType::Change:
    case LineType::FollowedChange:
    case LineType::IncompleteChange:
      noteBoth(line.record.oldIds, line.record.newIds);
      break;
    case LineType::PasswdUpdate:
    case LineType::GroupUpdate:
      noteAccount(std::string(line.text));
      break;
    default:
      if (line.isMarked)
        noteMarked(line.text);
  }
}

// An undo has overwritten the first byte, which told the kind of the line. The number of fields
// tells it as well.
void Loader::noteMarked(std::string_view text) {
  const std::string rest(text.substr(1));
  PrivateLogRecord record;
  if (parseLogLine("/" + rest, record) == LineType::Change)
    noteBoth(record.oldIds, record.newIds);
  else if (rest.find('/') == rest.npos)
    noteAccount((std::count(rest.begin(), rest.end(), ':') == 2 ? "@" : "=") + rest);
}

void Loader::noteAccount(const std::string& line) {
  if (const auto user = parsePasswdUpdateLine(line))
    noteBoth(user->oldIds, user->newIds);
  else if (const auto group = parseGroupUpdateLine(line))
    noteGroup(group->oldGid, group->newGid);
}

void Loader::noteBoth(OwnerIds oldIds, OwnerIds newIds) {
  loaded.oldUids.add(oldIds.uid);
  if (newIds.uid != oldIds.uid)
    loaded.newUids.add(newIds.uid);
  noteGroup(oldIds.gid, newIds.gid);
}

void Loader::noteGroup(uint32_t oldGid, uint32_t newGid) {
  loaded.oldGids.add(oldGid);
  if (newGid != oldGid)
    loaded.newGids.add(newGid);
}

// A commit puts the mode back before it finishes the record, and an undo before it marks the line:
// so a finished record or a marked line needs nothing.
void Loader::noteHeldMode(const ScannedLine& line) {
  if (!line.vouched || line.isMarked || (line.vouched->line.flags & kLineHoldsMode) == 0)
    return;
  const bool isUndo = (line.vouched->line.flags & kLineRestoring) != 0;
  if (!isUndo && line.type != LineType::IncompleteChange)
    return;
  HeldMode held = {std::string(line.record.path), line.isFollowed(), *line.vouched, line.record};
  held.record.path = {};
  loaded.heldModes.push_back(std::move(held));
}

void Loader::noteAccountLine(const ScannedLine& line) {
  LoggedAccount logged;
  PlannedUpdate& update = logged.update;
  if (line.vouched) {
    const IndexLine& record = line.vouched->line;
    update.isGroup = record.kind == IndexKind::Group;
    if (!update.isGroup && record.kind != IndexKind::Passwd)
      return;
    logged.position = line.vouched->position;
    update.name = line.text.substr(1, record.nameLength);
    update.oldIds = line.record.oldIds;
    update.newIds = record.newIds;
  } else if (const auto user = parsePasswdUpdateLine(line.text)) {
    update = {false, std::string(user->name), user->oldIds, user->newIds};
  } else if (const auto group = parseGroupUpdateLine(line.text)) {
    update = {true, std::string(group->name), {0, group->oldGid}, {0, group->newGid}};
  } else {
    return;
  }
  logged.isMarked = line.isMarked;
  loaded.accounts.push_back(std::move(logged));
}

// A section counts as undone when its date line is marked.
void Loader::noteFailed(const ScannedLine& line) {
  if (!line.vouched)
    return;
  const IndexLine& record = line.vouched->line;
  if (record.kind == IndexKind::Section)
    isSectionUndone = line.isMarked;
  if (isSectionUndone || line.isMarked || (record.flags & kLineFailed) == 0 || record.birth == 0)
    return;
  FailedEntry failed = {std::string(line.record.path), line.isFollowed(), *line.vouched,
                        line.record};
  failed.record.path = {};
  loaded.failedEntries.push_back(std::move(failed));
}

void Loader::noteSection(const ScannedLine& line) {
  if (line.vouched && line.vouched->line.kind == IndexKind::Section)
    loaded.sections.push_back({line.offset, line.vouched->position, line.isOpenSection});
}

// Capabilities are left out: a further change of owner has to keep the capability again, so there
// is nothing to pass over.
void Loader::takeAttributes(std::vector<LoggedAttribute> attributes) {
  loaded.attributes = std::move(attributes);
  for (const LoggedAttribute& logged : loaded.attributes) {
    const IndexAttribute& record = logged.record;
    if (record.what == AttributeKind::Capability ||
        (record.flags & (kAttributeFailed | kAttributeUndone)) != 0)
      continue;
    const InodeKey key = {loaded.classes.ofRecord(record.id.device, logged.fileSystem),
                          record.id.inode};
    const bool isDone = (record.flags & kAttributeDone) != 0;
    loaded.knownAttributes.emplace(
        key.inode, KnownAttribute{key, record.birth, record.what, logged.position, isDone});
  }
}

// Both the offsets and the positions of sections ascend.
bool isInOpenSection(const std::vector<LoggedSection>& sections,
                     uint64_t LoggedSection::*place,
                     uint64_t wanted) {
  const auto behind = std::ranges::upper_bound(sections, wanted, {}, place);
  return behind != sections.begin() && std::prev(behind)->isOpen;
}

}  // namespace

bool LoadedLog::isLineInOpenSection(uint64_t offset) const {
  return isInOpenSection(sections, &LoggedSection::offset, offset);
}

bool LoadedLog::isRecordInOpenSection(uint64_t position) const {
  return isInOpenSection(sections, &LoggedSection::position, position);
}

InodeKey LoadedLog::keyOf(const ScannedLine& line) {
  const uint64_t device = line.record.id.device;
  const NotedFileSystem noted = line.vouched ? line.vouched->fileSystem : NotedFileSystem{};
  return {classes.ofRecord(device, noted), line.record.id.inode};
}

bool loadLines(LogScan& scan, LoadedLog& loaded) {
  // Room is made for at most so many records, because a large index file may be mostly a hole.
  constexpr uint64_t kMostReserved = uint64_t{1} << 24;
  Loader loader(loaded);
  if (scan.hasIndex())
    loaded.table.reserve(std::min(scan.indexReader().mostRecords(), kMostReserved));
  while (const ScannedLine* line = scan.next())
    loader.take(*line);
  loader.takeTail(scan);
  loader.takeAttributes(std::move(scan.attributes()));
  return scan.error() == 0;
}
