#include "tests/support/whole_run.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "services/paths.h"

void WholeRun::arrange() {
  setPasswd(
      "root:x:0:0:root:/root:/bin/sh\n"
      "ann:x:500:100:Ann,,,:/home/ann:/bin/sh\n"
      "bob:x:501:101::/home/bob:/bin/sh\n"
      "cid:x:502:100::/home/cid:/bin/sh\n");
  setGroup("root:x:0:\nusers:x:100:ann,cid\nbobs:x:101:\nlp:x:7:\n");
  setZone(zoneUsers, "users:x:10000:\ndomad:x:101:\n");
  joinDomain("corp");
  agent = startProgram({binaryPath("zonagent")});
  for (int i = 0; i < 1000 && !exists(paths::kAgentSocket); ++i)
    ::usleep(10000);
  ASSERT_TRUE(exists(paths::kAgentSocket)) << "the agent does not start";
}

void WholeRun::setZone(const std::string& users, const std::string& groups) {
  writeFile("/etc/orvantadc/zone/passwd", users);
  writeFile("/etc/orvantadc/zone/group", groups);
  // The agent would wait with a file that has just lost accounts.
  const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::minutes(1);
  for (const char* file : {"/etc/orvantadc/zone/passwd", "/etc/orvantadc/zone/group"})
    std::filesystem::last_write_time(file, past);
}

void WholeRun::TearDown() {
  stopAgent();
  SandboxTest::TearDown();
}

RunResult WholeRun::idshift(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), binaryPath("idshift"));
  return runProgram(arguments);
}

RunResult WholeRun::shell(const std::string& command, const RunOptions& options) {
  return runProgram({"/bin/sh", "-c", command}, options);
}

void WholeRun::stopAgent() {
  if (agent < 0)
    return;
  EXPECT_EQ(stopProgram(agent).status, 0) << "the agent does not end cleanly";
  agent = -1;
}
