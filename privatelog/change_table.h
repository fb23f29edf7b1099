// The changes that the log knows, by file system and inode number. Records with the same key are
// kept in insertion order. An inode number is used again after its file was removed, so records
// with the same key may be of different files; their birth times differ.
//
// Made for tens of millions of records: a record costs 56 bytes and between 7 and 13 bytes of
// index. The path is not kept; the record holds its place in the log. Records are stored in chunks
// that never move. A lookup takes constant time plus the number of names of that inode, and
// allocates nothing. A user can make tens of thousands of links to one file. A 16-bit hash of the
// path saves comparing each of them in the log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "entry/file_ids.h"

// A file system as device_classes.h numbers it, and an inode in it.
struct InodeKey {
  uint32_t fileSystem = 0;
  uint64_t inode = 0;
};

struct LoggedChange {
  InodeKey key;
  int64_t birth = 0;  // of the inode; 0: unknown
  OwnerIds oldIds;
  OwnerIds newIds;
  uint64_t pathOffset = 0;  // in the log; 48 bits are kept
  uint32_t pathLength = 0;
  uint16_t pathHash = 0;  // 0: unknown
};

class ChangeTable {
 public:
  // The value for LoggedChange::pathHash. Never 0.
  static uint16_t hashOf(std::string_view path) {
    return static_cast<uint16_t>(std::hash<std::string_view>()(path) | 1);
  }

  // Makes room in the index of an empty table for so many keys, so that it need not grow.
  void reserve(size_t keys);

  // Adds the record behind those with the same key.
  void insert(const LoggedChange& change);

  // Prefetches the memory that a lookup of `key` will read first.
  void prefetch(InodeKey key) const;

  size_t count(InodeKey key) const;

  // Calls visit(const LoggedChange&) for each record of `key`, in insertion order.
  template <typename Visitor>
  void forEach(InodeKey key, Visitor&& visit) const {
    any(key, [&visit](const LoggedChange& change) {
      visit(change);
      return false;
    });
  }

  // Whether test(const LoggedChange&) is true for a record of `key`. Stops at the first one.
  template <typename Test>
  bool any(InodeKey key, Test&& test) const {
    for (uint32_t i = firstOf(key); i != kNone; i = at(i).next) {
      if (test(changeOf(at(i))))
        return true;
    }
    return false;
  }

  size_t size() const { return recordCount; }

 private:
  struct Hash;

  struct Record {
    uint64_t pathPlace = 0;  // pathOffset above, pathHash in the low 16 bits
    uint64_t inode = 0;
    int64_t birth = 0;
    OwnerIds oldIds;
    OwnerIds newIds;
    uint32_t pathLength = 0;
    uint32_t fileSystem = 0;
    uint32_t next = 0;  // position of the next record of the key, or kNone
    uint32_t last = 0;  // in the first record of a key: position of its last one; else kNone
  };
  static_assert(sizeof(Record) == 56);

  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kChunkBits = 12;

  Record& at(uint32_t position) const {
    return chunks[position >> kChunkBits][position & ((uint32_t{1} << kChunkBits) - 1)];
  }
  LoggedChange changeOf(const Record& record) const;
  uint32_t firstOf(InodeKey key) const;
  size_t slotOf(const Hash& hash, InodeKey key) const;
  void fillSlot(size_t slot, const Hash& hash, uint32_t position);
  void growIndex();
  void resizeIndex(size_t size);
  bool isRoomFor(size_t keys) const { return keys * 4 <= tags.size() * 3; }

  std::vector<std::unique_ptr<Record[]>> chunks;
  uint32_t recordCount = 0;
  // Open addressing (change_table.cc). A used slot has a tag and the position of the first record
  // of its key.
  std::vector<uint8_t> tags;
  std::unique_ptr<uint32_t[]> index;
  size_t keyCount = 0;
};
