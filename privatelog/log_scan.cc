// How lines are found. The index is read in order, and each record is compared with the text at its
// offset. Normally its line is there, right behind the previous line. When it is not, the log was
// edited: then the rest of the text is searched once for the lines of all remaining records
// (index_align.h), and the offsets found replace those in the records. Text between two vouched
// lines is only counted.

#include "privatelog/log_scan.h"

#include <algorithm>
#include <cerrno>

#include "privatelog/account_plan.h"
#include "privatelog/index_align.h"
#include "services/paths.h"

namespace {

// More bytes than the numbers of a start and an end take.
constexpr size_t kMostNumbers = 128;

LineType typeOf(const IndexLine& line, bool isFinished) {
  if ((line.flags & kLineFailed) != 0)
    return LineType::Ignored;
  switch (line.kind) {
    case IndexKind::Link:
      return LineType::Link;
    case IndexKind::Passwd:
      return LineType::PasswdUpdate;
    case IndexKind::Group:
      return LineType::GroupUpdate;
    case IndexKind::Followed:
      return isFinished ? LineType::FollowedChange : LineType::IncompleteChange;
    default:
      return isFinished ? LineType::Change : LineType::IncompleteChange;
  }
}

// The length of the end of a change behind its start, without the line feed. The end may be cut.
size_t endLength(std::string_view behind) {
  size_t length = 0;
  for (int field = 0; field < 2 && length < behind.size() && behind[length] == ':'; ++field)
    do {
      ++length;
    } while (length < behind.size() && behind[length] >= '0' && behind[length] <= '9');
  return length;
}

uint64_t countLines(std::string_view text) {
  uint64_t count = 0;
  for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
    PrivateLogRecord record;
    count += parseLogLine(text.substr(0, end), record) != LineType::Ignored ? 1 : 0;
  }
  return count;
}

}  // namespace

LogScan::Opened LogScan::open(bool hardened) {
  isHardened = hardened;
  if (!reader.open(paths::kPrivateLog))
    return Opened::No;
  literalEnd = LogReader::kNoLimit;
  if (!hardened)
    return Opened::Yes;
  if (!ranges.load(reader.descriptor()))
    return Opened::No;
  switch (index.open(paths::kPrivateLogIndex)) {
    case IndexReader::Opened::Absent:
      return Opened::Yes;
    case IndexReader::Opened::Misfit:
      return Opened::Misfit;
    case IndexReader::Opened::Yes:
      break;
  }
  findLiteralEnd();
  return Opened::Yes;
}

// Reads the record of the literal part, which is the first one. When somebody edited that part its
// end has moved: then the first section behind it is not at its offset, and a realignment finds the
// new end.
void LogScan::findLiteralEnd() {
  literalEnd = 0;
  bool hasLines = false;
  scanEnd.indexEnd = index.end();
  auto bytes = index.next();
  if (bytes && kindOf(bytes->data()) == IndexKind::Literal) {
    const auto literal = fromBytes<IndexLiteral>(bytes->data());
    literalEnd = literal.until;
    hasLines = literal.hasLines != 0;
    scanEnd.indexEnd = index.end();
    bytes = index.next();
  }
  const uint64_t first = scanEnd.indexEnd;
  if (bytes && kindOf(bytes->data()) == IndexKind::Section) {
    const auto section = fromBytes<IndexSection>(bytes->data());
    literalEnd = std::min(literalEnd, section.offset);  // a damaged record must not hide a line
    if (!isInPlace(section)) {
      realign(first, 0);
      const auto place = std::find_if(linePlaces.begin(), linePlaces.end(),
                                      [](uint64_t found) { return found != kNoLine; });
      if (place != linePlaces.end())
        literalEnd = *place;
      scanEnd.movedLiteralEnd = literalEnd;
    }
  }
  if (!hasLines)
    literalEnd = 0;  // the tool wrote only the header, which the caller reads
  index.seek(first);
}

bool LogScan::isInPlace(const IndexSection& section) const {
  LogReader probe;
  if (!probe.open(paths::kPrivateLog))
    return false;
  probe.skipTo(section.offset);
  const std::string_view text = probe.peek(kMostNumbers);
  const size_t length = text.find('\n');
  return probe.position() == section.offset && length != 0 && length != text.npos &&
         checksumOf(index.seed(), text.substr(1, length - 1)) == section.checksum;
}

const ScannedLine* LogScan::next() {
  if (isFinished)
    return nullptr;
  if ((reader.position() < literalEnd && nextLiteral()) || (hasIndex() && nextVouched()))
    return &scanned;
  finish();
  return nullptr;
}

bool LogScan::nextLiteral() {
  while (const auto line = reader.next(literalEnd)) {
    if (isHardened && ranges.contains(line->offset))
      continue;
    scanned.type = parseLogLine(line->text, scanned.record);
    scanned.offset = line->offset;
    scanned.text = line->text;
    scanned.isMarked = line->text.starts_with(kUndoneMark);
    scanned.vouched.reset();
    scanEnd.hasLiteralLines = true;
    return true;
  }
  if (hasIndex())
    reader.skipTo(literalEnd);  // past a torn line on which a section follows
  return false;
}

bool LogScan::nextVouched() {
  cursor = reader.position();
  while (const auto bytes = index.next()) {
    if (!tryRecord(*bytes))
      continue;
    scanEnd.indexEnd = index.end();
    if (!isTornTail)
      return true;
  }
  return false;
}

bool LogScan::tryRecord(const IndexBytes& bytes) {
  const IndexKind kind = kindOf(bytes.data());
  if (kind == IndexKind::FileSystem) {
    const auto noted = fromBytes<IndexFileSystem>(bytes.data());
    fileSystems.push_back({noted.device, noted.type, noted.fsid, sectionIsOfThisBoot});
  }
  if (kind == IndexKind::Attribute)
    takeAttribute(fromBytes<IndexAttribute>(bytes.data()));
  if (kind != IndexKind::Section && !isLineKind(kind))
    return false;
  ++triedRecords;
  bool isTaken = takeRecord(bytes);
  if (!isTaken && linePlaces.empty() && hasLineBehindCursor()) {
    realign(index.position(), cursor);
    isTaken = takeRecord(bytes);
  }
  fittingRecords += isTaken ? 1 : 0;
  if (isTaken)
    scanEnd.nextKind = IndexKind::None;
  else if (scanEnd.nextKind == IndexKind::None)
    scanEnd.nextKind = kind;
  return isTaken;
}

// A complete attribute record counts although the log has no line for it.
void LogScan::takeAttribute(const IndexAttribute& record) {
  const uint64_t position = index.position();
  const uint64_t behind = index.end();
  if (!readAttributeChange(index, position)) {
    index.seek(behind);
    return;
  }
  seenAttributes.push_back({record, position, notedFileSystem(record.id.device)});
  scanEnd.indexEnd = index.end();
}

bool LogScan::takeRecord(const IndexBytes& bytes) {
  return kindOf(bytes.data()) == IndexKind::Section
             ? takeSection(fromBytes<IndexSection>(bytes.data()))
             : takeLine(fromBytes<IndexLine>(bytes.data()));
}

// The content at `offset`: `length` bytes or all that are left; nothing when that place was passed
// already or does not exist. Does not move the reader.
std::optional<std::string_view> LogScan::textAt(uint64_t offset, size_t length) {
  const uint64_t place = placeOf(offset);
  if (place == kNoLine || place < cursor)
    return std::nullopt;
  const auto gap = static_cast<size_t>(place - cursor);
  const std::string_view text = reader.peek(gap + length);
  if (text.size() <= gap)
    return std::nullopt;
  return text.substr(gap);
}

// The offset at which to look for the line of the record read last, whose own offset is `offset`.
uint64_t LogScan::placeOf(uint64_t offset) const {
  return linePlaces.empty() ? offset : linePlaces[index.position() / kIndexRecordSize];
}

// Whether any line is left. If not, records without a line come from a run that was killed between
// index and log, and nothing was edited.
bool LogScan::hasLineBehindCursor() {
  size_t length = kMostNumbers;
  for (;;) {
    const std::string_view text = reader.peek(length);
    if (text.find('\n') != text.npos)
      return true;
    if (text.size() < length)
      return false;
    length *= 2;
  }
}

// Moves the cursor behind a vouched line from `begin` to `end`, and counts the lines skipped in
// front of it.
void LogScan::advance(uint64_t begin, uint64_t end) {
  if (begin > cursor)
    scanEnd.unvouchedLines += countLines(reader.peek(0).substr(0, begin - cursor));
  cursor = end;
  reader.skipTo(end);
}

NotedFileSystem LogScan::notedFileSystem(uint64_t device) const {
  for (const NotedFileSystem& noted : fileSystems) {
    if (noted.device == device)
      return noted;
  }
  return {};
}

bool LogScan::takeSection(const IndexSection& section) {
  const auto text = textAt(section.offset, kMostNumbers);
  const size_t length = text ? text->find('\n') : std::string_view::npos;
  if (length == std::string_view::npos || length == 0 ||
      checksumOf(index.seed(), text->substr(1, length - 1)) != section.checksum)
    return false;
  sectionIsOfThisBoot = isSameBoot(section.bootId, boot);
  fileSystems.clear();
  openStart.clear();
  scanned.text = text->substr(0, length);
  scanned.isMarked = scanned.text.front() == kUndoneMark;
  scanned.type = scanned.isMarked ? LineType::Ignored : LineType::Date;
  scanned.offset = placeOf(section.offset);
  scanned.record = {};
  scanned.vouched.emplace(Vouched{{}, index.position(), {}});
  scanned.vouched->line.kind = IndexKind::Section;
  scanned.isOpenSection = section.state == SectionState::Open;
  advance(scanned.offset, scanned.offset + length + 1);
  return true;
}

bool LogScan::takeLine(const IndexLine& line) {
  const auto text = textAt(line.offset, line.nameLength + kMostNumbers);
  const auto start = text ? parseVouchedStart(line, index.seed(), *text) : std::nullopt;
  if (!start)
    return false;
  const size_t ending = start->length + endLength(text->substr(start->length));
  const bool isEnded = ending < text->size() && (*text)[ending] == '\n';
  const bool hasEnd = ending > start->length;

  scanned.record = start->record;
  scanned.offset = placeOf(line.offset);
  scanned.text = text->substr(0, start->length);
  scanned.isMarked = start->isMarked;
  scanned.type = start->isMarked ? LineType::Ignored : typeOf(line, hasEnd);
  scanned.vouched.emplace(
      Vouched{line, index.position(), notedFileSystem(start->record.id.device)});
  openStart.clear();
  // Text without a line feed at the end of the log is not handed out as a line.
  isTornTail = ending == text->size();
  if (!isEnded) {
    openStart = text->substr(0, ending);
    openRecord = scanned.vouched;
    hasOpenEnd = hasEnd;
  }
  advance(scanned.offset, scanned.offset + ending + (isEnded ? 1 : 0));
  return true;
}

// Looks for the lines of the record at `firstPosition` and of all later records, in the text from
// `textFrom` on.
void LogScan::realign(uint64_t firstPosition, uint64_t textFrom) {
  const uint64_t here = index.end();
  std::vector<IndexBytes> records;
  index.seek(firstPosition);
  while (const auto bytes = index.next())
    records.push_back(*bytes);
  LogReader whole;
  if (!whole.open(paths::kPrivateLog))
    return;
  whole.skipTo(textFrom);
  const std::string_view text = whole.peek(static_cast<size_t>(whole.status().st_size));
  const std::vector<uint64_t> found = alignRecords(records, index.seed(), text);
  linePlaces.assign(firstPosition / kIndexRecordSize, kNoLine);
  for (const uint64_t place : found)
    linePlaces.push_back(place == kNoLine ? kNoLine : place + textFrom);
  index.seek(here);
  scanEnd.realignedFrom = firstPosition;
}

// The end of the newest plan in the index. It counts although the lines of its updates may not
// exist yet.
uint64_t LogScan::planEnd() {
  const uint64_t here = index.end();
  const uint64_t position = index.newestPlan();
  IndexPlan header;
  const bool isPlan = position != 0 && readPlan(index, position, header);
  index.seek(here);
  return isPlan ? position + kIndexRecordSize : 0;
}

// Judges the text behind the last vouched line. After a kill or a power cut the file has reserved
// room behind its content, or the index has records without a line. Unvouched text at the end is
// then not a person's but what such a run left: a line whose record was lost, or a start that was
// cut. No change was recorded by it, so it is cut off. Otherwise the log was edited, and the text
// stays.
void LogScan::finish() {
  isFinished = true;
  const uint64_t vouchedEnd = cursor;
  uint64_t behind = 0;
  while (const auto line = reader.next())
    behind += countLines(std::string(line->text) + "\n");
  const LogLine tail = reader.tail();
  scanEnd.contentEnd = scanEnd.textEnd = reader.contentEnd();
  scanEnd.tailOffset = tail.offset;
  scanEnd.tail = tail.text;
  if (!hasIndex())
    return;
  scanEnd.indexEnd = std::max(scanEnd.indexEnd, planEnd());
  const bool isUnclean = static_cast<uint64_t>(reader.status().st_size) > scanEnd.contentEnd;
  const bool hasMoreRecords = scanEnd.nextKind != IndexKind::None && !scanEnd.realignedFrom;
  if (scanEnd.contentEnd > vouchedEnd && vouchedEnd >= literalEnd &&
      (isUnclean || hasMoreRecords)) {
    scanEnd.contentEnd = vouchedEnd;
    scanEnd.tail.clear();
    scanEnd.tailOffset = vouchedEnd;
    behind = 0;
  }
  scanEnd.unvouchedLines += behind;
  if (scanEnd.contentEnd == vouchedEnd && !openStart.empty()) {
    scanEnd.tail = openStart;
    scanEnd.tailOffset = vouchedEnd - openStart.size();
    scanEnd.tailRecord = openRecord;
    scanEnd.hasTailEnd = hasOpenEnd;
  }
}
