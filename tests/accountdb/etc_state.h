// What the tests of this folder ask about the sandbox's machine.
#pragma once

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include "tests/support/sandbox.h"

// The files that an update left in /etc or /tmp and should not have.
inline std::set<std::string> leftovers() {
  std::set<std::string> names;
  for (const char* directory : {"/etc", "/tmp"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      const std::string name = entry.path().filename();
      const bool isPidFile = name.find_first_of("0123456789") != std::string::npos;
      const bool isLock = name.ends_with(".lock") && name != ".pwd.lock";
      if (isPidFile || isLock || name.ends_with("+") || name.starts_with("passwddb."))
        names.insert(name);
    }
  }
  return names;
}

// Whether a record of the log file, which recordLog() has opened, ends so.
inline bool isLogged(const std::string& end) {
  return std::ranges::any_of(readLogRecords(),
                             [&end](const std::string& record) { return record.ends_with(end); });
}
