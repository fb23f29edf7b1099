// The records of the log's index: what the log's text cannot say or cannot be trusted to say.
//
// FORMAT.md, "The index", tells what each is for. All have 40 bytes, in the machine's byte order;
// the first byte is the kind, and a record whose kind is 0 is not there. Pure: no file is touched
// here.
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
  Literal = 'T',     // the log up to a place was written without an index
  Section = 'S',     // the date line of a run
  FileSystem = 'F',  // of the lines that follow, once a section and device
  Change = 'C',
  Followed = '>',
  Link = '+',
  Passwd = '=',
  Group = '@',
  Lost = 'L',       // its line is gone from the log
  Planned = 'P',    // an update of an account that a run is about to make
  Bytes = 'B',      // more of the record in front of it
  Plan = 'O',       // the planned updates in front of it are all that there are
  Attribute = 'X',  // an extended attribute is about to be changed
};

// A record as it stands in the file.
using IndexBytes = std::array<char, kIndexRecordSize>;

// An index gets the second version with its first attribute: a release that cannot put those back
// refuses then.
inline constexpr uint8_t kIndexVersion = 1;
inline constexpr uint8_t kIndexVersionOfAttributes = 2;

struct IndexHeader {
  IndexKind kind = IndexKind::Header;
  uint8_t version = kIndexVersion;
  uint16_t recordSize = kIndexRecordSize;
  uint32_t unused = 0;
  uint64_t magic = 0x58444e4954464853;  // "SHFTINDX" read from low to high
  uint64_t seed = 0;                    // of every checksum in this index
  uint64_t newestPlan = 0;              // position of its Plan record; 0: there is none
  uint64_t unused2 = 0;
};

struct IndexLiteral {
  IndexKind kind = IndexKind::Literal;
  uint8_t hasLines = 0;  // besides the header
  uint8_t unused[6] = {};
  uint64_t until = 0;  // offset of the first byte that is not read literally
  uint64_t unused2[3] = {};
};

struct IndexSection {
  IndexKind kind = IndexKind::Section;
  uint8_t unused[3] = {};
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
inline constexpr uint8_t kLineFailed = 1;     // the change did not take place
inline constexpr uint8_t kLineHoldsMode = 2;  // `mode` is to be put back behind the change of owner
inline constexpr uint8_t kLineRestoring = 4;  // and the change is that of an undo

struct IndexLine {
  IndexKind kind = IndexKind::Change;  // Change, Followed, Link, Passwd or Group
  uint8_t flags = 0;
  uint16_t mode = 0;        // permissions and special bits, found before the change of owner
  uint32_t nameLength = 0;  // bytes of the path, or of the account's name
  uint64_t offset = 0;      // of the start's first byte in the log
  int64_t birth = 0;        // of the inode, ns since 1970; 0: it cannot be told from another
  OwnerIds newIds;          // that are meant; in a link's record 0
  uint32_t checksum = 0;    // of the start as it stands in the log, without its first byte
  uint32_t modeTime = 0;    // when `mode` was found, seconds since 1970
};

struct IndexPlanned {
  IndexKind kind = IndexKind::Planned;
  uint8_t isGroup = 0;
  uint16_t unused = 0;
  uint32_t nameLength = 0;
  OwnerIds oldIds;
  OwnerIds newIds;
  std::array<char, 16> name = {};  // its first bytes; the others follow in records of their own
};

struct IndexBytesOf {
  IndexKind kind = IndexKind::Bytes;
  std::array<char, kIndexRecordSize - 1> bytes = {};
};

struct IndexPlan {
  IndexKind kind = IndexKind::Plan;
  uint8_t isClosed = 0;  // nothing of it is to be done any more
  uint16_t unused = 0;
  uint32_t checksum = 0;  // of the records from `first` on
  uint64_t first = 0;     // position of the first planned update
  uint64_t section = 0;   // position of the record of its section; 0 until the section is begun
  uint64_t previous = 0;  // position of the plan before; 0: there is none
  uint64_t unused2 = 0;
};

// Flags of an attribute.
inline constexpr uint8_t kAttributeFollowed = 1;    // of what the link at the path leads to
inline constexpr uint8_t kAttributeDone = 2;        // the change was made
inline constexpr uint8_t kAttributeFailed = 4;      // it was not
inline constexpr uint8_t kAttributeUndone = 8;      // backed out, or given up
inline constexpr uint8_t kAttributeRestoring = 16;  // a capability that an undo has to keep

struct IndexAttribute {
  IndexKind kind = IndexKind::Attribute;
  AttributeKind what = AttributeKind::AccessAcl;
  uint8_t flags = 0;
  uint8_t unused = 0;
  uint32_t pathLength = 0;
  uint32_t formerLength = 0;  // bytes of its value before the change
  uint32_t checksum = 0;      // of the fields behind it, and of the bytes that follow
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

// The bytes of a record, and back. REQUIRES: `bytes` has the length of a record, of that kind.
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

// 32 bits that tell one text from another. Not a secret: who can write the index can write
// anything.
uint32_t checksumOf(uint64_t seed, std::string_view text);

// The start of a line as it stands in the log.
struct ParsedStart {
  PrivateLogRecord record;  // the path, for a file; the ids that the text has
  std::string_view name;    // the path or the account's name, its first byte possibly a mark
  size_t length = 0;        // of the start, in bytes; of the whole line for an account
  bool isMarked = false;    // its first byte was overwritten by an undo
};

// The length of the start that `text` begins with, by the kind and the name's length of its record;
// 0 when it is none.
size_t startLength(const IndexLine& line, std::string_view text);

// Reads `text`, which begins at the line's start, by what its record says. Nothing when it is not
// what the record vouches for.
std::optional<ParsedStart> parseVouchedStart(const IndexLine& line,
                                             uint64_t seed,
                                             std::string_view text);
