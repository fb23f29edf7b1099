// Walks as the driver does, in a child process, over trees of the sandbox.
//
// The maps: uid 500 -> 10500, 501 -> 10501; gid 100 -> 10100, 101 -> 10101. ann (500) has 100 as
// her local primary group and 20100 as that of the zone. 502 is not mapped.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "services/command_options.h"
#include "tests/support/sandbox.h"
#include "tests/support/std_trees.h"

class WalkTest : public SandboxTest {
 protected:
  void arrange() override;

  // Walks one directory argument as the driver does. The output is a line of three words: the
  // result of MapFilesInDir, the count of changes in the log, and the directory where the walk
  // ended. The status is 6 when the changes could not be synced.
  RunResult walk(const std::string& top = "/trees/t", const RunOptions& childOptions = {});

  // Runs `action` at the moment at which `line` is printed on standard error.
  void at(const std::string& line, const std::function<void()>& action) { actions[line] = action; }

  // The records of the last walk without header, date, device and inode.
  static std::multiset<std::string> records();

  CommandOptions options;  // --commit
  bool append = false;     // continue the log of the last walk

 private:
  int walkInChild(const std::string& top);

  std::map<std::string, std::function<void()>> actions;
};
