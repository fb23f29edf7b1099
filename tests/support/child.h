// Runs a function or a program in a child process and returns its status and its output.
//
// Standard input is empty. The output streams are files in memory, so that a grandchild that keeps
// them open does not delay the result. A child that takes too long is killed and the test fails.
// The child inherits descriptors that are not close-on-exec.
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
  std::optional<uid_t> uid = {};  // the child's uid and gid; it is in no other group
  int timeoutSeconds = 60;
};

// Runs `body` in a fork of this process. The child ends by exit(), as after a return from main:
// exit handlers and destructors of statics run. If a gtest expectation fails in the child, its
// status is 250 and the failure's text is in `out`. An uncaught exception ends the child by
// SIGABRT.
RunResult runInChild(const std::function<int()>& body, const RunOptions& options = {});

// Runs the program argv[0], which is looked up in PATH unless it contains a slash. The status is
// 127 when the program cannot be started.
RunResult runProgram(const std::vector<std::string>& argv, const RunOptions& options = {});

// Starts a program, such as an agent, and leaves it running with the streams of this process. The
// caller ends the program with stopProgram(), which sends SIGTERM, and SIGKILL after 10 s.
pid_t startProgram(const std::vector<std::string>& argv);
RunResult stopProgram(pid_t pid);

// For other ways to run a child. `action` runs in the child and does not return. `wait` runs here
// and returns the wait status.
RunResult runForked(const std::function<void()>& action, const std::function<int(pid_t)>& wait);
[[noreturn]] void execProgram(const std::vector<std::string>& argv);

// Whether this build's programs have the sanitizers in them. Tests that count system calls, or make
// them or allocations fail, are then skipped: the sanitizers' runtime makes its own.
inline constexpr bool kSanitized = IDSHIFT_SANITIZED != 0;
