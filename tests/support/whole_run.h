// The sandbox with the sample accounts, a zone that disagrees with them, and the real agent.
//
// Local: root 0:0, ann 500:100, bob 501:101, cid 502:100; groups root 0, users 100, bobs 101, lp 7.
// Zone: ann 10001:10000, dora 501:10000; groups users 10000, domad 101. So ann and users take the
// zone's ids, bob and bobs make room for strangers, cid, lp and root keep theirs.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

class WholeRun : public SandboxTest {
 protected:
  void arrange() override;
  void TearDown() override;

  // Runs the program with these arguments.
  static RunResult idshift(std::vector<std::string> arguments);
  static RunResult shell(const std::string& command, const RunOptions& options = {});

  static void setZone(const std::string& users, const std::string& groups);
  void stopAgent();

  std::string zoneUsers = "ann:x:10001:10000:::\ndora:x:501:10000:::\n";

 private:
  pid_t agent = -1;
};
