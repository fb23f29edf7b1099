// The hash index. Every entry of a walk is looked up, and most are not in the table. A map of nodes
// reads the memory of a node for each lookup, even of an absent key, and allocates a node for each
// record: too slow and too big for tens of millions of records.
//
// So the index is a table of slots with open addressing: an array of one-byte tags and beside it an
// array of record positions. A tag is 0 for a free slot, else it holds seven bits of the hash. A
// lookup begins at the home slot of its key and reads tags until a free one: the record itself is
// read only when a tag fits, so a key that is not in the table nearly always costs one cache line
// of tags. The other records of a key hang on the first one as a list, whose end the first record
// knows.
//
// When three quarters of the slots are used the index doubles and is filled anew from the records,
// which do not move.

#include "privatelog/change_table.h"

#include <stdexcept>

namespace {

constexpr size_t kFirstIndexSize = 1024;

// Four inodes with consecutive numbers have neighbouring slots: a walk mostly meets inode numbers
// close together, and their tags then share a cache line. Groups of four are spread over the table
// by the hash.
constexpr unsigned kRunBits = 2;

constexpr unsigned kPathHashBits = 16;

// Set in the tag of every slot in use.
constexpr uint8_t kUsed = 0x80;

}  // namespace

// The home slot of a key, not yet reduced to the size of the index, and the tag of its slot.
struct ChangeTable::Hash {
  explicit Hash(InodeKey key) {
    const uint64_t inRun = key.inode & ((1u << kRunBits) - 1);
    uint64_t h =
        ((key.inode >> kRunBits) + key.fileSystem * 0x9e3779b97f4a7c15u) * 0xbf58476d1ce4e5b9u;
    h = (h ^ (h >> 29)) * 0x94d049bb133111ebu;
    h ^= h >> 32;
    home = (h << kRunBits) | inRun;
    tag = static_cast<uint8_t>((h >> 56) ^ inRun) | kUsed;
  }

  uint64_t home;
  uint8_t tag;
};

void ChangeTable::insert(const LoggedChange& change) {
  if (recordCount == kNone)
    throw std::length_error("too many records in the private log");
  if (!isRoomFor(keyCount + 1))
    growIndex();
  if ((recordCount >> kChunkBits) == chunks.size())
    chunks.push_back(std::make_unique_for_overwrite<Record[]>(size_t{1} << kChunkBits));

  const uint32_t position = recordCount++;
  const uint64_t pathPlace = (change.pathOffset << kPathHashBits) | change.pathHash;
  at(position) = {pathPlace,     change.key.inode,  change.birth,          change.oldIds,
                  change.newIds, change.pathLength, change.key.fileSystem, kNone,
                  kNone};

  const Hash hash(change.key);
  const size_t slot = slotOf(hash, change.key);
  if (tags[slot] == 0) {
    fillSlot(slot, hash, position);
    ++keyCount;
  } else {
    at(at(index[slot]).last).next = position;
  }
  at(index[slot]).last = position;
}

void ChangeTable::reserve(size_t keys) {
  size_t size = kFirstIndexSize;
  while (keys * 4 > size * 3)
    size *= 2;
  if (recordCount == 0)
    resizeIndex(size);
}

void ChangeTable::prefetch(InodeKey key) const {
  if (tags.empty())
    return;
  const size_t home = Hash(key).home & (tags.size() - 1);
  __builtin_prefetch(&tags[home], 1);
  __builtin_prefetch(&index[home], 1);
}

size_t ChangeTable::count(InodeKey key) const {
  size_t found = 0;
  forEach(key, [&found](const LoggedChange&) { ++found; });
  return found;
}

LoggedChange ChangeTable::changeOf(const Record& record) const {
  return {{record.fileSystem, record.inode},
          record.birth,
          record.oldIds,
          record.newIds,
          record.pathPlace >> kPathHashBits,
          record.pathLength,
          static_cast<uint16_t>(record.pathPlace)};
}

uint32_t ChangeTable::firstOf(InodeKey key) const {
  if (tags.empty())
    return kNone;
  const size_t slot = slotOf(Hash(key), key);
  return tags[slot] == 0 ? kNone : index[slot];
}

// The slot that holds the key, or the free slot where it belongs.
size_t ChangeTable::slotOf(const Hash& hash, InodeKey key) const {
  const size_t mask = tags.size() - 1;
  for (size_t slot = hash.home & mask;; slot = (slot + 1) & mask) {
    if (tags[slot] == 0)
      return slot;
    if (tags[slot] != hash.tag)
      continue;
    const Record& record = at(index[slot]);
    if (record.inode == key.inode && record.fileSystem == key.fileSystem)
      return slot;
  }
}

void ChangeTable::fillSlot(size_t slot, const Hash& hash, uint32_t position) {
  tags[slot] = hash.tag;
  index[slot] = position;
}

void ChangeTable::resizeIndex(size_t size) {
  tags.assign(size, 0);
  index = std::make_unique_for_overwrite<uint32_t[]>(size);
}

void ChangeTable::growIndex() {
  resizeIndex(tags.empty() ? kFirstIndexSize : tags.size() * 2);
  for (uint32_t i = 0; i < recordCount; ++i) {
    const Record& record = at(i);
    if (record.last == kNone)
      continue;
    const InodeKey key = {record.fileSystem, record.inode};
    const Hash hash(key);
    fillSlot(slotOf(hash, key), hash, i);
  }
}
