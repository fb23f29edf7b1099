// The types for an inode and for its owner, and how both are read from a struct stat.
#pragma once

#include <sys/stat.h>

#include <compare>
#include <cstdint>

// Identifies an inode on this machine at one moment. Both numbers can later be another file's.
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

// The mode bits that a change of owner clears, as far as the file system clears any.
inline constexpr mode_t kSpecialBits = S_ISUID | S_ISGID | S_ISVTX;

inline DevInode idOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

inline OwnerIds ownerOf(const struct stat& status) {
  return {status.st_uid, status.st_gid};
}
