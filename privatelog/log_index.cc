#include "privatelog/log_index.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

#include "privatelog/index_align.h"
#include "services/paths.h"

namespace {

std::string_view viewOf(const IndexBytes& bytes) {
  return {bytes.data(), bytes.size()};
}

template <class Field>
std::string_view bytesOf(const Field& field) {
  return {reinterpret_cast<const char*>(&field), sizeof field};
}

}  // namespace

bool LogIndex::open(const LogScan& scan) {
  startAfresh();
  hasLiteralLines = scan.end().hasLiteralLines;
  if (!scan.hasIndex())
    return true;
  seed = scan.indexReader().seed();
  newestPlan = scan.indexReader().newestPlan();
  if (!file.open(paths::kPrivateLogIndex, creationMode))
    return false;
  const bool isMoved = scan.end().realignedFrom || scan.end().movedLiteralEnd;
  const uint64_t end = isMoved ? scan.indexReader().end() : scan.end().indexEnd;
  if (!file.setEnd(end) || (isMoved && !moveRecords(scan)))
    return false;
  keep();
  return true;
}

void LogIndex::startAfresh() {
  file.close();
  hasLiteralLines = false;
  seed = keptEnd = lastLine = lastSection = latestNoted = newestPlan = 0;
  hasAttributes = false;
  notedDevices.clear();
}

// Overwrites one field of each record. A kill leaves some records with new offsets and some with
// old ones; the next run then realigns again and finds all lines.
bool LogIndex::moveRecords(const LogScan& scan) {
  constexpr uint64_t kOffsetField = offsetof(IndexLine, offset);
  static_assert(kOffsetField == offsetof(IndexSection, offset) &&
                kOffsetField == offsetof(IndexLiteral, until));
  if (scan.end().movedLiteralEnd &&
      !file.overwrite(kIndexRecordSize + kOffsetField, bytesOf(*scan.end().movedLiteralEnd)))
    return false;
  IndexReader reader;
  if (!scan.end().realignedFrom)
    return true;
  if (reader.open(paths::kPrivateLogIndex) != IndexReader::Opened::Yes)
    return false;
  reader.seek(*scan.end().realignedFrom);
  while (const auto bytes = reader.next()) {
    const IndexKind kind = kindOf(bytes->data());
    if (kind != IndexKind::Section && !isLineKind(kind))
      continue;
    const uint64_t place = scan.places().at(reader.position() / kIndexRecordSize);
    const bool isDone = place == kNoLine
                            ? file.overwrite(reader.position(), bytesOf(IndexKind::Lost))
                            : file.overwrite(reader.position() + kOffsetField, bytesOf(place));
    if (!isDone)
      return false;
  }
  return reader.error() == 0;
}

bool LogIndex::create(uint64_t literalEnd) {
  IndexHeader header;
  if (getrandom(&header.seed, sizeof header.seed, 0) != sizeof header.seed ||
      !file.open(paths::kPrivateLogIndex, creationMode))
    return false;
  IndexLiteral literal;
  literal.until = literalEnd;
  literal.hasLines = hasLiteralLines ? 1 : 0;
  const std::string text =
      std::string(viewOf(toBytes(header))) + std::string(viewOf(toBytes(literal)));
  if (!file.setEnd(0) || !file.append(text)) {
    const int error = errno;
    file.close();
    errno = error;
    return false;
  }
  seed = header.seed;
  keep();
  return file.syncName();
}

bool LogIndex::add(const IndexBytes& bytes) {
  return file.append(bytes);
}

bool LogIndex::addSection(std::string_view dateLine, uint64_t offset) {
  if (!file.isOpen() && !create(offset))
    return false;
  notedDevices.clear();
  latestNoted = 0;
  IndexSection section;
  section.checksum = checksumOf(seed, dateLine.substr(1));
  section.offset = offset;
  section.bootId = currentBootId();
  section.state = SectionState::Open;
  if (!add(toBytes(section)))
    return false;
  lastSection = file.end() - kIndexRecordSize;
  return true;
}

bool LogIndex::setSectionSynced() {
  return !file.isOpen() || lastSection == 0 ||
         file.overwrite(lastSection + offsetof(IndexSection, state), bytesOf(SectionState::Synced));
}

// The header names the plan only after the plan is on the disk: until then no run acts on the plan.
std::optional<uint64_t> LogIndex::addPlan(std::span<const PlannedUpdate> updates,
                                          uint64_t logEnd,
                                          bool hasSection) {
  if (!file.isOpen() && !create(logEnd))
    return std::nullopt;
  IndexPlan plan;
  plan.first = file.end();
  plan.section = hasSection ? lastSection : 0;
  plan.previous = newestPlan;
  if (!file.append(formatPlan(updates, plan, seed)))
    return std::nullopt;
  keep();
  const uint64_t position = file.end() - kIndexRecordSize;
  if (!file.sync() || !file.overwrite(offsetof(IndexHeader, newestPlan), bytesOf(position)) ||
      !file.sync())
    return std::nullopt;
  newestPlan = position;
  return position;
}

// A position behind the newest plan comes from a former index; a new one was begun since.
bool LogIndex::setPlanSection(uint64_t position) {
  return position > newestPlan ||
         file.overwrite(position + offsetof(IndexPlan, section), bytesOf(lastSection));
}

bool LogIndex::closePlan(uint64_t position) {
  constexpr uint8_t kClosed = 1;
  return position > newestPlan ||
         file.overwrite(position + offsetof(IndexPlan, isClosed), bytesOf(kClosed));
}

std::optional<uint64_t> LogIndex::addAttribute(const AttributeChange& change, uint64_t logEnd) {
  if (!file.isOpen() && !create(logEnd))
    return std::nullopt;
  hasAttributes = hasAttributes || file.overwrite(offsetof(IndexHeader, version),
                                                  bytesOf(kIndexVersionOfAttributes));
  const uint64_t position = file.end();
  if (!hasAttributes || !file.append(formatAttribute(change, seed)))
    return std::nullopt;
  return position;
}

bool LogIndex::flagAttribute(uint64_t position, uint8_t flags) {
  return file.overwrite(position + offsetof(IndexAttribute, flags), bytesOf(flags));
}

bool LogIndex::note(uint64_t device, const FileSystemFacts& facts) {
  latestNoted = device;
  if (std::find(notedDevices.begin(), notedDevices.end(), device) != notedDevices.end())
    return true;
  IndexFileSystem noted;
  noted.device = device;
  noted.type = facts.type;
  noted.fsid = facts.fsid;
  if (!add(toBytes(noted))) {
    latestNoted = 0;
    return false;
  }
  notedDevices.push_back(device);
  return true;
}

bool LogIndex::addLine(const IndexLine& line, uint64_t offset, std::string_view start) {
  if (!file.isOpen() && !create(offset))
    return false;
  IndexLine record = line;
  record.offset = offset;
  record.checksum = checksumOf(seed, start.substr(1));
  if (!add(toBytes(record)))
    return false;
  lastLine = file.end() - kIndexRecordSize;
  return true;
}

void LogIndex::takeBack() {
  if (file.isOpen() && file.end() > keptEnd) {
    const int error = errno;
    file.takeBack(keptEnd);  // if this fails the record stays, but has no line and is ignored
    notedDevices.clear();
    latestNoted = 0;
    errno = error;
  }
}

bool LogIndex::flag(uint64_t position, uint8_t flags) {
  return file.overwrite(position + offsetof(IndexLine, flags), bytesOf(flags));
}

// The flag is set last: without it mode and time are ignored.
bool LogIndex::holdMode(uint64_t position, mode_t mode, uint8_t flags) {
  const auto bits = static_cast<uint16_t>(mode & ALLPERMS);
  const auto now = static_cast<uint32_t>(time(nullptr));
  return file.overwrite(position + offsetof(IndexLine, mode), bytesOf(bits)) &&
         file.overwrite(position + offsetof(IndexLine, modeTime), bytesOf(now)) &&
         file.overwrite(position + offsetof(IndexLine, flags), bytesOf(flags));
}
