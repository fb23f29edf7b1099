// Runs a function or a program in a child process and brings back all that it said.
//
// Standard input is empty, the output streams are files in memory: a grandchild that lives on does
// not hold the result up. A child that outlives its time is killed and fails the test. Descriptors
// of the parent that are not close-on-exec are the child's as well.
#pragma once

#include <sys/types.h>

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

struct RunResult {
  int status = -1;  // exit status, -1 when a signal ended the child
  int signal = 0;   // the signal that ended the child, 0 when it exited
  std::string out;
  std::string err;
};
std::ostream& operator<<(std::ostream& stream, const RunResult& result);

struct RunOptions {
  std::optional<uid_t> uid = {};  // becomes user and group of the child, without further groups
  int timeoutSeconds = 60;
};

// Runs `body` in a fork of this process and ends it by exit(), as a return from main would: exit
// handlers and destructors of statics run. A body that fails a gtest expectation has status 250 and
// the text in `out`. An exception that leaves it ends the child by SIGABRT.
RunResult runInChild(const std::function<int()>& body, const RunOptions& options = {});

// Runs the program argv[0], looked up in PATH when it holds no slash. Status 127 when it cannot be
// started.
RunResult runProgram(const std::vector<std::string>& argv, const RunOptions& options = {});

// Starts a program and leaves it running with this process's own streams; for agents. The caller
// ends it with stopProgram: SIGTERM, and failing that SIGKILL after 10 s. Nothing is captured.
pid_t startProgram(const std::vector<std::string>& argv);
RunResult stopProgram(pid_t pid);

// For other ways to run a program: `action`, which does not return, in the child; here `wait`,
// which returns the wait status.
RunResult runForked(const std::function<void()>& action, const std::function<int(pid_t)>& wait);
[[noreturn]] void execProgram(const std::vector<std::string>& argv);

// Whether the programs of this build run under the sanitizers. Their runtime makes system calls and
// takes memory of its own, so that neither can be counted or made to fail.
inline constexpr bool kSanitized = IDSHIFT_SANITIZED != 0;
