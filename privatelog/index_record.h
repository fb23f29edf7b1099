// The records of the log's index, which hold what the log's text does not say reliably.
//
// FORMAT.md, "The index", describes each kind. All records have 40 bytes, in the machine's byte
// order. The first byte is the kind; kind 0 ends the index. Pure: no file is touched.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

#include "entry/attribute_access.h"
#include "privatelog/log_line.h"

inline constexpr size_t kIndexRecordSize = 40;

enum class IndexKind : uint8_t {
  None = 0,
  Header = 'I',      // the first record of every index
  Literal = 'T',     // the log up to an offset was written without an index
  Section = 'S',     // the date line of a run
  FileSystem = 'F',  // statfs of a device; once for each section and device
  Change = 'C',
  Followed = '>',
  Link = '+',
  Passwd = '=',
  Group = '@',
  Lost = 'L',       // its line is gone from the log
  Planned = 'P',    // an account update that a run is about to make
  Bytes = 'B',      // more bytes of the record in front of it
  Plan = 'O',       // the planned updates in front of it are complete
  Attribute = 'X',  // an extended attribute is about to be changed
};

// The bytes of one record.
using IndexBytes = std::array<char, kIndexRecordSize>;

// An index gets version 2 with its first attribute record: a release that cannot undo attributes
// then refuses the index.
inline constexpr uint8_t kIndexVersion = 1;
inline constexpr uint8_t kIndexVersionOfAttributes = 2;

struct IndexHeader {
  IndexKind kind = IndexKind::Header;
  uint8_t version = kIndexVersion;
  uint16_t recordSize = kIndexRecordSize;
  uint32_t unused = 0;
  uint64_t magic = 0x58444e4954464853;  // "SHFTINDX" read from low to high
  uint64_t seed = 0;                    // of every checksum in this index
  uint64_t newestPlan = 0;              // position of its Plan record; 0: none
  uint64_t unused2 = 0;
};

struct IndexLiteral {
  IndexKind kind = IndexKind::Literal;
  uint8_t hasLines = 0;  // the literal part has lines besides the header
  uint8_t unused[6] = {};
  uint64_t until = 0;  // offset of the first byte that is not read literally
  uint64_t unused2[3] = {};
};

// Whether the changes that a section records are on their disks.
enum class SectionState : uint8_t {
  Unknown = 0,  // written by a release that does not say
  Open = 1,     // perhaps not
  Synced = 2,
};

struct IndexSection {
  IndexKind kind = IndexKind::Section;
  SectionState state = SectionState::Unknown;
  uint8_t unused[2] = {};
  uint32_t checksum = 0;  // of the date line without its first byte
  uint64_t offset = 0;    // of the date line
  std::array<char, 16> bootId = {};
  uint64_t unused2 = 0;
};

struct IndexFileSystem {
  IndexKind kind = IndexKind::FileSystem;
  uint8_t unused[7] = {};
  uint64_t device = 0;  // as the log's lines have it
  uint64_t type = 0;
  uint64_t fsid = 0;  // 0: none
  uint64_t unused2 = 0;
};

// Flags of a line.
inline constexpr uint8_t kLineFailed = 1;     // the change was not made
inline constexpr uint8_t kLineHoldsMode = 2;  // `mode` is to be put back after the change of owner
inline constexpr uint8_t kLineRestoring = 4;  // with kLineHoldsMode: the change is an undo's

struct IndexLine {
  IndexKind kind = IndexKind::Change;  // Change, Followed, Link, Passwd or Group
  uint8_t flags = 0;
  uint16_t mode = 0;        // permissions and special bits before the change of owner
  uint32_t nameLength = 0;  // bytes of the path, or of the account's name
  uint64_t offset = 0;      // of the start's first byte in the log
  int64_t birth = 0;        // of the inode, ns since 1970; 0: not known for certain
  OwnerIds newIds;          // the intended ids; 0 for a link
  uint32_t checksum = 0;    // of the start in the log, without its first byte
  uint32_t modeTime = 0;    // when `mode` was found, seconds since 1970
};

struct IndexPlanned {
  IndexKind kind = IndexKind::Planned;
  uint8_t isGroup = 0;
  uint16_t unused = 0;
  uint32_t nameLength = 0;
  OwnerIds oldIds;
  OwnerIds newIds;
  std::array<char, 16> name = {};  // its first bytes; the rest follows in Bytes records
};

struct IndexBytesOf {
  IndexKind kind = IndexKind::Bytes;
  std::array<char, kIndexRecordSize - 1> bytes = {};
};

struct IndexPlan {
  IndexKind kind = IndexKind::Plan;
  uint8_t isClosed = 0;  // nothing is left to be done
  uint16_t unused = 0;
  uint32_t checksum = 0;  // of the records from `first` up to this one
  uint64_t first = 0;     // position of the first planned update
  uint64_t section = 0;   // position of its section's record; 0 until the section is begun
  uint64_t previous = 0;  // position of the previous plan; 0: none
  uint64_t unused2 = 0;
};

// Flags of an attribute record.
inline constexpr uint8_t kAttributeFollowed = 1;    // the path is a link, and its target is meant
inline constexpr uint8_t kAttributeDone = 2;        // the change was made
inline constexpr uint8_t kAttributeFailed = 4;      // the change was not made
inline constexpr uint8_t kAttributeUndone = 8;      // backed out, or given up
inline constexpr uint8_t kAttributeRestoring = 16;  // a capability that an undo keeps

struct IndexAttribute {
  IndexKind kind = IndexKind::Attribute;
  AttributeKind what = AttributeKind::AccessAcl;
  uint8_t flags = 0;
  uint8_t unused = 0;
  uint32_t pathLength = 0;
  uint32_t formerLength = 0;  // bytes of the value before the change
  uint32_t checksum = 0;      // of `id`, `birth` and the Bytes records
  DevInode id;
  int64_t birth = 0;
};

template <class Record>
inline constexpr bool kIsIndexRecord =
    sizeof(Record) == kIndexRecordSize&& std::is_trivially_copyable_v<Record>;
static_assert(kIsIndexRecord<IndexHeader> && kIsIndexRecord<IndexLiteral> &&
              kIsIndexRecord<IndexSection> && kIsIndexRecord<IndexFileSystem> &&
              kIsIndexRecord<IndexLine> && kIsIndexRecord<IndexPlanned> &&
              kIsIndexRecord<IndexBytesOf> && kIsIndexRecord<IndexPlan> &&
              kIsIndexRecord<IndexAttribute>);

// Converts a record to bytes and back. REQUIRES: `bytes` is a whole record of that kind.
template <class Record>
IndexBytes toBytes(const Record& record) {
  static_assert(kIsIndexRecord<Record>);
  IndexBytes bytes;
  memcpy(bytes.data(), &record, bytes.size());
  return bytes;
}
template <class Record>
Record fromBytes(const char* bytes) {
  static_assert(kIsIndexRecord<Record>);
  Record record;
  memcpy(&record, bytes, sizeof record);
  return record;
}

inline IndexKind kindOf(const char* bytes) {
  return static_cast<IndexKind>(*bytes);
}

constexpr bool isLineKind(IndexKind kind) {
  return kind == IndexKind::Change || kind == IndexKind::Followed || kind == IndexKind::Link ||
         kind == IndexKind::Passwd || kind == IndexKind::Group;
}

// A 32-bit checksum. It needs no secret: only root can write the index.
uint32_t checksumOf(uint64_t seed, std::string_view text);

// The start of a line in the log, parsed.
struct ParsedStart {
  PrivateLogRecord record;  // the path of a file; ids from the text, new ids from the record
  std::string_view name;    // the path or the account's name; its first byte may be a mark
  size_t length = 0;        // of the start, in bytes; of the whole line for an account
  bool isMarked = false;    // its first byte was overwritten by an undo
};

// The length of the start at the front of `text`, whose kind and name length `line` gives; 0 when
// no such start is there.
size_t startLength(const IndexLine& line, std::string_view text);

// Parses the start at the front of `text` as its record `line` describes it. Nothing when the text
// does not fit the record: the record does not vouch for that text.
std::optional<ParsedStart> parseVouchedStart(const IndexLine& line,
                                             uint64_t seed,
                                             std::string_view text);
