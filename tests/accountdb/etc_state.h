// What the tests of this folder ask about the sandbox's machine.
#pragma once

#include <sys/mount.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

// The names in a directory.
inline std::set<std::string> namesIn(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    names.insert(entry.path().filename());
  return names;
}

inline void removeFile(const std::string& path) {
  requireSandbox();
  std::filesystem::remove(path);
}

// The files that an update left beside the account files and should not have.
inline std::set<std::string> leftovers() {
  std::set<std::string> names;
  for (const std::string& name : namesIn("/etc")) {
    const bool pidFile = name.find_first_of("0123456789") != std::string::npos;
    if (name.ends_with(".lock") ? name != ".pwd.lock" : name.ends_with("+") || pidFile)
      names.insert(name);
  }
  for (const std::string& name : namesIn("/tmp")) {
    if (name.starts_with("passwddb."))
      names.insert(name);
  }
  return names;
}

// The newest record of the log file, which recordLog() has opened.
inline std::string lastRecord() {
  const std::vector<std::string> records = readLogRecords();
  return records.empty() ? std::string() : records.back();
}

// A shell script in the place of a system program, for this process and its children.
class StandIn {
 public:
  StandIn(const std::string& replaced, const std::string& script) : program(replaced) {
    const std::string file = "/run" + program;
    writeFile(file, "#!/bin/sh\n" + script, 0755);
    EXPECT_EQ(::mount(file.c_str(), program.c_str(), nullptr, MS_BIND, nullptr), 0) << program;
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  ~StandIn() { ::umount2(program.c_str(), MNT_DETACH); }

 private:
  std::string program;
};
