// The fixture of the private log's tests: a sandbox that is joined to the domain "corp", and
// functions that record changes.
#pragma once

#include <sys/stat.h>
#include <sys/xattr.h>

#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "privatelog/private_log.h"
#include "services/paths.h"
#include "tests/support/sandbox.h"

inline const std::string kLog = paths::kPrivateLog;
inline const std::string kHeader = "domain:corp\n";
inline constexpr OwnerIds kOldIds = {500, 100};
inline constexpr OwnerIds kNewIds = {10001, 10000};

// ":device:inode" of the entry at the path.
inline std::string idText(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return ":" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// An entry with this device and inode, which need not exist.
class Looked {
 public:
  Looked(DevInode id, std::string itsPath, bool isFollowed = false)
      : path(std::move(itsPath)), followed(isFollowed) {
    status.id = id;
    status.owner = kOldIds;
  }
  operator LookedAt() const { return {status, path, "", followed}; }  // NOLINT: implicit on purpose

 private:
  EntryStatus status;
  std::string path;
  bool followed;
};

// Sets the attribute by which an older log records that a path with line feeds begins at `offset`.
// Both numbers must be below 2^14.
inline void rememberName(const std::string& log, uint64_t offset, uint64_t length) {
  const auto twoGroups = [](uint64_t number) {
    return std::string({static_cast<char>(number | 0x80), static_cast<char>(number >> 7)});
  };
  const std::string bytes = twoGroups(offset) + twoGroups(length);
  ASSERT_EQ(setxattr(log.c_str(), "trusted.idshift.lf", bytes.data(), bytes.size(), 0), 0);
}

inline bool begin(PrivateLog& log, DevInode id, const std::string& path, bool followed = false) {
  static std::string kept;  // the log keeps a view of the path until the record is finished
  kept = path;
  static std::optional<EntryStatus> status;
  status.emplace();
  status->id = id;
  status->owner = kOldIds;
  return log.beginRecord({*status, kept, "", followed}, kNewIds);
}

inline bool change(PrivateLog& log, DevInode id, const std::string& path) {
  if (!begin(log, id, path))
    return false;
  log.finishRecord(kNewIds);
  return true;
}

class LogWorld : public SandboxTest {
 protected:
  void arrange() override { joinDomain("corp"); }

  // Makes a run that continues the log, or begins one, and records one change.
  static void run(DevInode id, const std::string& path) {
    PrivateLog log;
    const bool isUsable = log.loadPrivateLog(true);
    ASSERT_TRUE(log.openPrivateLog(isUsable));
    ASSERT_TRUE(change(log, id, path));
    ASSERT_TRUE(log.close());
    log.release();
  }
};
