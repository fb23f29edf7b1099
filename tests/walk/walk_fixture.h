// A walk as the driver makes it, in a child of its own, over trees of the sandbox.
//
// The maps: uid 500 -> 10500, 501 -> 10501; gid 100 -> 10100, 101 -> 10101; ann (500) has 100 as
// her local primary group and 20100 as the zone's. 502 is not mapped.
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

  // Runs what the driver does for one directory argument. The output is a line of three words: what
  // MapFilesInDir returned, the log's count of changes, and the directory where the walk ended.
  // The status is 6 when the changes could not be brought to the disk.
  RunResult walk(const std::string& top = "/trees/t", const RunOptions& childOptions = {});

  // Lets `action` happen at the moment at which `line` is printed on standard error.
  void at(const std::string& line, const std::function<void()>& action) { actions[line] = action; }

  // The records of the last walk without header, date, device and inode.
  static std::multiset<std::string> records();

  CommandOptions options;  // --commit
  bool append = false;     // continue the log of the walk before

 private:
  int walkInChild(const std::string& top);

  std::map<std::string, std::function<void()>> actions;
};
