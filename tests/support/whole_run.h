// For tests of whole runs: the sandbox with sample accounts, a zone that conflicts with them, and
// the real agent. TearDown() stops the agent.
//
// Local: root 0:0, ann 500:100, bob 501:101, cid 502:100; groups root 0, users 100, bobs 101, lp 7.
// Zone: ann 10001:10000, dora 501:10000; groups users 10000, domad 101. A run thus gives ann and
// users the zone's ids. It gives bob and bobs spare ids, because dora and domad have theirs in the
// zone. cid, lp and root keep their ids.
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
