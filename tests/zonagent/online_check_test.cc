// The online check: what it confirms, how often it runs, and the one for winbind.
#include "zonagent/online_check.h"

#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"
#include "zonagent/nss_module.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

using orvs::wire::Kind;

// Whether the process ends whose number is in the file: it is gone or a zombie within a second.
bool hasEnded(const std::string& pidFile) {
  const std::string process = "/proc/" + std::to_string(std::stoi(readFile(pidFile)));
  for (int i = 0; i < 100; ++i, usleep(10'000)) {
    std::ifstream status(process + "/stat");
    std::string line;
    if (!std::getline(status, line) || contains(line, ") Z "))
      return true;
  }
  return false;
}

class OnlineCheckTest : public SandboxTest {};

}  // namespace

// While its directory is down a module reports what it has not cached as not found, and may give
// cached accounts another id.
TEST_F(OnlineCheckTest, NoAnswerOfAModuleCountsWhileTheOnlineCheckFails) {
  // A check that hangs is killed together with its child.
  writeFile("/tmp/hang", "#!/bin/sh\nsleep 600 &\necho $! >/tmp/child\nwait\n", 0755);
  const struct {
    const char* command;
    const char* why;  // empty: the module's answers count
  } rows[] = {{"", ""},
              {" test  -d /", ""},
              {"false", "the online check fails with status 1"},
              {"true ; false", ""},  // words, not a shell's line
              {"/nowhere/check", "the online check cannot be run: No such file or directory"},
              {"/tmp/hang", "the online check does not end in time"}};
  for (const auto& row : rows) {
    NssModule module("toy", row.command, std::chrono::seconds(0));
    const bool counts = row.why[0] == '\0';
    EXPECT_EQ(module.find({Kind::User, "notfound", {}}).verdict,
              counts ? Verdict::NotFound : Verdict::Unavailable)
        << row.command;
    EXPECT_EQ(module.find({Kind::User, "ayla", {}}).verdict,
              counts ? Verdict::Found : Verdict::Unavailable)
        << row.command;
    EXPECT_EQ(module.find({Kind::Group, {}, 0}).why, row.why);
  }
  EXPECT_TRUE(hasEnded("/tmp/child"));
}

TEST(OnlineCheck, WhatTheLastResultConfirms) {
  using Time = CheckResult::Time;
  using std::chrono::milliseconds;
  using std::chrono::seconds;
  const auto at = [](int ms) { return Time() + milliseconds(ms); };
  const struct {
    Online last;  // of a command that ran from 10 s to 11 s
    Evidence evidence;
    int came, now;
    int window;
    Online expected;
  } rows[] = {
      {Online::Yes, Evidence::Absence, 10'000, 11'000, 2, Online::Yes},
      {Online::Yes, Evidence::Absence, 10'001, 11'000, 2, Online::NotAsked},
      {Online::Yes, Evidence::Record, 9'000, 11'000, 0, Online::Yes},
      {Online::Yes, Evidence::Record, 10'001, 11'000, 0, Online::NotAsked},
      {Online::Yes, Evidence::Record, 11'999, 12'500, 2, Online::Yes},
      {Online::Yes, Evidence::Record, 12'000, 12'000, 2, Online::NotAsked},
      {Online::No, Evidence::Absence, 13'999, 13'999, 2, Online::No},
      {Online::No, Evidence::Record, 10'001, 13'999, 2, Online::No},
      {Online::No, Evidence::Record, 10'001, 14'000, 2, Online::NotAsked},
      {Online::NotAsked, Evidence::Record, 10'000, 11'000, 2, Online::NotAsked},
  };
  for (const auto& row : rows) {
    const CheckResult last = {{row.last, ""}, at(10'000), at(11'000)};
    EXPECT_EQ(speaksFor(last, row.evidence, at(row.came), at(row.now), seconds(row.window)),
              row.expected)
        << row.came << " " << row.window;
  }
}

TEST_F(OnlineCheckTest, TheCommandRunsOnlyWhenTheLastResultDoesNotApply) {
  writeFile("/tmp/check", "#!/bin/sh\necho >>/tmp/runs\ntest -e /tmp/online\n", 0755);
  OnlineCheck check("/tmp/check", std::chrono::seconds(2));
  const auto ask = [&check](Evidence evidence) {
    const Online verdict = check.ask(evidence).verdict;
    return (verdict == Online::Yes ? "yes " : "no ") + std::to_string(readFile("/tmp/runs").size());
  };
  EXPECT_EQ(ask(Evidence::Absence), "no 1");
  writeFile("/tmp/online", "");
  EXPECT_EQ(ask(Evidence::Record), "no 1");
  check.forget();
  EXPECT_EQ(ask(Evidence::Record), "yes 2");
  EXPECT_EQ(ask(Evidence::Record), "yes 2");
  EXPECT_EQ(ask(Evidence::Absence), "yes 3");
  EXPECT_EQ(unlink("/tmp/online"), 0);
  EXPECT_EQ(ask(Evidence::Record), "yes 3");  // the window has not passed
  EXPECT_EQ(ask(Evidence::Absence), "no 4");
  EXPECT_EQ(ask(Evidence::Record), "no 4");
}

TEST_F(OnlineCheckTest, WinbindOnlineEndsBeforeTheAgentKillsIt) {
  const struct {
    const char* wbinfo;
    const char* arguments;
    int status;
  } rows[] = {
      {"test \"$*\" = --ping-dc", "", 0},
      {"test $(cut -d' ' -f5 /proc/$$/stat) != $PPID", "", 0},  // in the agent's process group
      {"test \"$*\" = '--domain=CORP --ping-dc'", "CORP", 0},
      {"exit 1", "", 1},
      {"echo $$ >/tmp/child; exec sleep 600", "", 137},
      {"", "CORP OTHER", 2}};
  for (const auto& row : rows) {
    writeFile("/tmp/bin/wbinfo", std::string("#!/bin/sh\n") + row.wbinfo + "\n", 0755);
    RunOptions options;
    options.timeoutSeconds = 4;
    const std::string program = std::string("PATH=/tmp/bin:$PATH ") + BUILD_DIRECTORY;
    EXPECT_EQ(
        runProgram({"sh", "-c", program + "/winbind-online " + row.arguments}, options).status,
        row.status)
        << row.wbinfo;
  }
  EXPECT_TRUE(hasEnded("/tmp/child"));
}
