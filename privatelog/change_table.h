// The changes that the log knows: a multiset of records ordered by device and inode, records of
// equal key in insertion order. Nobody walks across keys, so the order between keys is not kept.
//
// Made for tens of millions of records: a record costs 48 bytes, its path's length and between 6
// and 13 bytes of index. Records and paths stand in chunks that never move. Lookups take constant
// time, plus the number of names of that inode; they do not allocate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "privatelog/log_line.h"
#include "privatelog/log_record.h"

class ChangeTable {
 public:
  // Copies the record, path included, behind the records of equal key.
  void insert(const LogRecordView& record);

  bool hasInode(DevInode id) const { return firstOf(id) != kNone; }
  bool hasPath(DevInode id, std::string_view path) const;
  size_t count(DevInode id) const;

  // Calls visit(const LogRecordView&) for the records of `id` in insertion order.
  template <typename Visitor>
  void forEach(DevInode id, Visitor&& visit) const {
    for (uint32_t i = firstOf(id); i != kNone; i = at(i).next)
      visit(viewOf(at(i)));
  }

  size_t size() const { return recordCount; }

 private:
  struct Record {
    const char* path = nullptr;
    uint64_t inode = 0;
    OwnerIds oldIds;
    OwnerIds newIds;
    uint32_t pathLength = 0;
    uint32_t device = 0;  // position in `devices`
    uint32_t next = 0;    // of equal key, or kNone
    uint32_t last = 0;    // of equal key, kept in the first of them; kNone in the others
  };
  static_assert(sizeof(Record) == 48);

  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kChunkBits = 12;

  Record& at(uint32_t position) const {
    return chunks[position >> kChunkBits][position & ((uint32_t{1} << kChunkBits) - 1)];
  }
  LogRecordView viewOf(const Record& record) const;
  uint32_t firstOf(DevInode id) const;
  size_t slotOf(uint32_t device, uint64_t inode) const;
  uint32_t deviceNumber(uint64_t device);
  const char* storePath(std::string_view path);
  void growIndex();

  std::vector<std::unique_ptr<Record[]>> chunks;
  uint32_t recordCount = 0;
  std::vector<uint32_t> index;  // open addressing: position of the first record of a key, or kNone
  size_t keyCount = 0;
  std::vector<uint64_t> devices;
  std::unordered_map<uint64_t, uint32_t> deviceNumbers;
  uint32_t latestDevice = 0;  // of the record inserted last
  std::vector<std::unique_ptr<char[]>> pathChunks;
  char* pathRoom = nullptr;
  size_t pathRoomLeft = 0;
};
