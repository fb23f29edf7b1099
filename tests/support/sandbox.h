// The sandbox: a root directory of its own for tests that write to fixed paths or change owners.
//
// The first SetUp moves the process, for good, into a private mount namespace with a new root.
// /usr, /bin and the like, and the build folder as /build, are read-only. /proc is the real one.
// /dev has a few harmless devices and no /dev/log, so that nothing reaches the machine's own log.
// /etc, /var, /tmp and /trees are file systems in memory, which every SetUp makes anew, nearly
// empty. Without root the tests are skipped, with the reason. Helpers that write abort the process
// outside of the sandbox.
//
// A process reads the settings once: write them before the first use, or run the rest of the test
// inside runInChild().
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/files.h"
#include "tests/support/tree_snapshot.h"

// The path of a program of this build inside the sandbox: binaryPath("idshift").
std::string binaryPath(const std::string& name);

// Aborts with a message unless this process is in the sandbox.
void requireSandbox();

// Creates or replaces a file with exactly this mode. Creates missing directories above it.
void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644);

// Replace the account files.
void setPasswd(const std::string& text);
void setGroup(const std::string& text);

// Appends one "key = value" line to the settings file.
void addSetting(const std::string& line);

// Makes this machine a member of `domain`.
void joinDomain(const std::string& domain);

// Makes the log file take every record from now on, of every level.
void recordLog();

// The lines of the log file since the test began; empty without recordLog().
std::vector<std::string> readLogRecords();

class SandboxTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // A fixture prepares each test here. Not called for a test that is skipped.
  virtual void arrange() {}
};
