// One change of one file, as the private log records it.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

// What tells one inode from another on this machine.
struct DevInode {
  uint64_t device = 0;
  uint64_t inode = 0;
  auto operator<=>(const DevInode&) const = default;  // NOLINT(modernize-use-nullptr): 14 errs
};

struct OwnerIds {
  uint32_t uid = 0;
  uint32_t gid = 0;
  auto operator<=>(const OwnerIds&) const = default;  // NOLINT(modernize-use-nullptr): 14 errs
};

struct PrivateLogRecord {
  DevInode id;
  OwnerIds oldIds;
  OwnerIds newIds;
  std::string path;  // absolute, as the walk built it
};
