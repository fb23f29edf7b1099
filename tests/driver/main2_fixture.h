// A machine of its own for whole runs, each in a child of the test.
//
// It is a member of "corp". ann and her group staff have other ids in the zone, bob and his group
// agree with it. /trees/t/f is ann's.
#pragma once

#include <string>
#include <vector>

#include "driver/cli_idshift.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"
#include "tests/support/std_trees.h"

using Words = std::vector<std::string>;

class Main2 : public SandboxTest {
 protected:
  void arrange() override {
    joinDomain("corp");
    setPasswd("root:x:0:0::/root:/bin/sh\nann:x:500:100::/:/bin/sh\nbob:x:501:101::/:/bin/sh\n");
    setGroup("root:x:0:\nstaff:x:100:\ndev:x:101:\n");
    zone.stop();
    zone.user("ann", 10001, 10000).user("bob", 501, 101);
    zone.group("staff", 10000).group("dev", 101);
    zone.start();
    tree("/trees/t", {{"f", '-', 0644, 500, 100, ""}});
  }

  static int callMain2(const Words& words) {
    Words argv = {"idshift"};
    argv.insert(argv.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    for (std::string& word : argv)
      pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return main2(static_cast<int>(argv.size()), pointers.data());
  }

  // The same, through main: a program of its own can be checked for leaks.
  static RunResult run(Words words, const RunOptions& options = {}) {
    words.insert(words.begin(), binaryPath("idshift"));
    return runProgram(words, options);
  }

  static void tree(const std::string& root, const std::vector<TreeEntry>& entries) {
    makeTree(root, entries);
  }

  FakeZone zone;
};
