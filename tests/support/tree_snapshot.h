// The state of a tree at one moment, to prove that nothing else has changed or that an undo
// restored everything.
//
// A snapshot maps each path below the root ("." is the root) to what lstat() returns, the contents,
// the ACLs and the capability. Links are not followed.
#pragma once

#include <sys/types.h>

#include <iosfwd>
#include <map>
#include <string>

#include <gtest/gtest.h>

struct EntryState {
  mode_t type = 0;  // S_IFREG and so on
  mode_t mode = 0;  // permission and set-id bits alone
  uid_t uid = 0;
  gid_t gid = 0;
  dev_t dev = 0;
  ino_t ino = 0;
  nlink_t nlink = 0;
  off_t size = 0;
  std::string contents = {};  // of a regular file; of a symbolic link the target
  std::string acls = {};      // access and default ACL, in the kernel's bytes
  std::string capability = {};
  bool operator==(const EntryState&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const EntryState& state);

struct TreeSnapshot {
  std::map<std::string, EntryState> entries;

  bool operator==(const TreeSnapshot&) const = default;
  const EntryState& at(const std::string& path) const { return entries.at(path); }

  // Path -> "uid:gid", for comparing the owners alone.
  std::map<std::string, std::string> owners() const;
};

// Aborts when `root` cannot be read.
TreeSnapshot takeSnapshot(const std::string& root);

// For EXPECT_TRUE(sameTree(before, after)): lists each entry that differs, before and after.
::testing::AssertionResult sameTree(const TreeSnapshot& before, const TreeSnapshot& after);
