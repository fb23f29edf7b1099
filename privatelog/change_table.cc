#include "privatelog/change_table.h"

#include <cstring>
#include <stdexcept>

namespace {

constexpr size_t kFirstIndexSize = 1024;
constexpr size_t kPathChunk = size_t{256} << 10;
constexpr size_t kLongPath = kPathChunk / 16;  // gets a chunk of its own

// A slot is 4 bytes: inodes of one run of 16 share a cache line, as what a walk meets one after the
// other mostly has inode numbers close together. The runs themselves are spread.
constexpr unsigned kRunBits = 4;

uint64_t hashOf(uint32_t device, uint64_t inode) {
  uint64_t h = ((inode >> kRunBits) + device * 0x9e3779b97f4a7c15u) * 0xbf58476d1ce4e5b9u;
  h = (h ^ (h >> 29)) * 0x94d049bb133111ebu;
  h ^= h >> 32;
  return (h << kRunBits) | (inode & ((1u << kRunBits) - 1));
}

}  // namespace

void ChangeTable::insert(const LogRecordView& record) {
  if (recordCount == kNone)
    throw std::length_error("too many records in the private log");
  if ((keyCount + 1) * 8 > index.size() * 5)
    growIndex();
  if ((recordCount >> kChunkBits) == chunks.size())
    chunks.push_back(std::make_unique<Record[]>(size_t{1} << kChunkBits));

  const uint32_t device = deviceNumber(record.id.device);
  const char* path = storePath(record.path);
  const uint32_t position = recordCount++;
  at(position) = {path,
                  record.id.inode,
                  record.oldIds,
                  record.newIds,
                  static_cast<uint32_t>(record.path.size()),
                  device,
                  kNone,
                  kNone};

  uint32_t& first = index[slotOf(device, record.id.inode)];
  if (first == kNone) {
    first = position;
    ++keyCount;
  } else {
    at(at(first).last).next = position;
  }
  at(first).last = position;
}

bool ChangeTable::hasPath(DevInode id, std::string_view path) const {
  for (uint32_t i = firstOf(id); i != kNone; i = at(i).next) {
    if (viewOf(at(i)).path == path)
      return true;
  }
  return false;
}

size_t ChangeTable::count(DevInode id) const {
  size_t found = 0;
  forEach(id, [&found](const LogRecordView&) { ++found; });
  return found;
}

LogRecordView ChangeTable::viewOf(const Record& record) const {
  return {{devices[record.device], record.inode},
          record.oldIds,
          record.newIds,
          {record.path, record.pathLength},
          false};
}

uint32_t ChangeTable::firstOf(DevInode id) const {
  if (devices.empty())
    return kNone;
  uint32_t device = latestDevice;
  if (devices[device] != id.device) {
    const auto known = deviceNumbers.find(id.device);
    if (known == deviceNumbers.end())
      return kNone;
    device = known->second;
  }
  return index[slotOf(device, id.inode)];
}

// The slot that holds the key, or the empty one where it belongs.
size_t ChangeTable::slotOf(uint32_t device, uint64_t inode) const {
  const size_t mask = index.size() - 1;
  for (size_t slot = hashOf(device, inode) & mask;; slot = (slot + 1) & mask) {
    if (index[slot] == kNone)
      return slot;
    const Record& record = at(index[slot]);
    if (record.inode == inode && record.device == device)
      return slot;
  }
}

uint32_t ChangeTable::deviceNumber(uint64_t device) {
  if (devices.empty() || devices[latestDevice] != device) {
    const auto [entry, isNew] =
        deviceNumbers.try_emplace(device, static_cast<uint32_t>(devices.size()));
    if (isNew)
      devices.push_back(device);
    latestDevice = entry->second;
  }
  return latestDevice;
}

const char* ChangeTable::storePath(std::string_view path) {
  if (path.size() > kLongPath) {
    pathChunks.push_back(std::make_unique_for_overwrite<char[]>(path.size()));
    memcpy(pathChunks.back().get(), path.data(), path.size());
    return pathChunks.back().get();
  }
  if (path.size() > pathRoomLeft) {
    pathChunks.push_back(std::make_unique_for_overwrite<char[]>(kPathChunk));
    pathRoom = pathChunks.back().get();
    pathRoomLeft = kPathChunk;
  }
  char* stored = pathRoom;
  if (!path.empty())
    memcpy(stored, path.data(), path.size());
  pathRoom += path.size();
  pathRoomLeft -= path.size();
  return stored;
}

void ChangeTable::growIndex() {
  index.assign(index.empty() ? kFirstIndexSize : index.size() * 2, kNone);
  for (uint32_t i = 0; i < recordCount; ++i) {
    const Record& record = at(i);
    if (record.last != kNone)
      index[slotOf(record.device, record.inode)] = i;
  }
}
