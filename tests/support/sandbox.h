// A machine of its own for tests that touch fixed paths or change owners.
//
// The first SetUp of a process moves it, for good, into a private mount namespace with a new root:
// /usr, its companions and the build folder, as /build, are there read-only, /proc is the real one,
// /dev holds a few harmless devices (no /dev/log: nothing reaches the machine's own log). /etc,
// /var, /tmp and /trees are file systems of their own, empty but for the minimum, and every SetUp
// makes them anew. Needs root; otherwise the tests are skipped with the reason.
//
// Whatever would write through these helpers outside of such a root aborts the process.
//
// The settings are read once in a process: write them before the first use, or do the rest of the
// test inside runInChild.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/files.h"
#include "tests/support/tree_snapshot.h"

// Where a program of this build is inside the sandbox: binaryPath("idshift").
std::string binaryPath(const std::string& name);

// Aborts with a message unless this process (or the one it was forked from) is in the sandbox.
void requireSandbox();

// Creates or replaces a file, and the directories above it, with exactly this mode.
void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644);

// Replace the account files.
void setPasswd(const std::string& text);
void setGroup(const std::string& text);

// Appends one "key = value" line to the settings file.
void addSetting(const std::string& line);

// Makes this machine a member of `domain`.
void joinDomain(const std::string& domain);

// Lets the log file take every record from now on, at every level.
void recordLog();

// The records of the log file since the test began, one string a line; empty without recordLog().
std::vector<std::string> readLogRecords();

class SandboxTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // For fixtures: what is made anew for each test. Not called for a test that is skipped.
  virtual void arrange() {}
};
