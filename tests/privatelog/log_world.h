// The world of the private log's tests: a sandbox that is joined to the domain "corp", and verbs.
#pragma once

#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "privatelog/private_log.h"
#include "services/paths.h"
#include "tests/support/sandbox.h"

inline const std::string kLog = paths::kPrivateLog;
inline const std::string kHeader = "domain:corp\n";
inline constexpr OwnerIds kOldIds = {500, 100};
inline constexpr OwnerIds kNewIds = {10001, 10000};

// ":device:inode" of what stands at the path.
inline std::string idText(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return ":" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

inline bool change(PrivateLog& log, DevInode id, const std::string& path) {
  if (!log.beginRecord(id, kOldIds, path, false))
    return false;
  log.finishRecord(kNewIds);
  return true;
}

class LogWorld : public SandboxTest {
 protected:
  void arrange() override { joinDomain("corp"); }

  // A run that continues the log, or begins one, and makes one change.
  static void run(DevInode id, const std::string& path) {
    PrivateLog log;
    const bool isUsable = log.loadPrivateLog(true);
    ASSERT_TRUE(log.openPrivateLog(isUsable));
    ASSERT_TRUE(change(log, id, path));
    ASSERT_TRUE(log.close());
    log.release();
  }
};
