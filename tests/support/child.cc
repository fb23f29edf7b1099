#include "tests/support/child.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <ostream>

#include <gtest/gtest.h>

namespace {

[[noreturn]] void die(const char* what) {
  std::fprintf(stderr, "test support: %s: %s\n", what, std::strerror(errno));
  std::abort();
}

std::string captured(const UniqueFd& file) {
  std::string text;
  std::array<char, 65536> buffer{};
  ssize_t count = 0;
  while ((count = ::pread(file.get(), buffer.data(), buffer.size(),
                          static_cast<off_t>(text.size()))) > 0)
    text.append(buffer.data(), static_cast<size_t>(count));
  return text;
}

// Whether the child ended in time; otherwise it is killed. Either way it is gone, and `result` says
// how it ended.
bool waitInto(pid_t pid, int timeoutSeconds, RunResult& result) {
  // The raw call: this glibc declares its wrapper without C linkage.
  const UniqueFd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  pollfd ended{pidFd.get(), POLLIN, 0};
  const bool inTime = ::poll(&ended, 1, timeoutSeconds * 1000) == 1;
  if (!inTime)
    ::kill(pid, SIGKILL);
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid)
    die("waitpid");
  if (WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  return inTime;
}

// In the child: identity and directory. False with errno.
bool applyOptions(const RunOptions& options) {
  if (!options.cwd.empty() && ::chdir(options.cwd.c_str()) != 0)
    return false;
  if (!options.uid)
    return true;
  const gid_t gid = *options.uid;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(gid, gid, gid) == 0 &&
         ::setresuid(*options.uid, *options.uid, *options.uid) == 0;
}

pid_t forkOrDie() {
  // What is still in the parent's buffers would be printed a second time by the child's exit().
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0)
    die("fork");
  return pid;
}

// Forks; in the child, `action` must not return.
RunResult forkAndCollect(const RunOptions& options, const std::function<void()>& action) {
  const Capture capture;
  const pid_t pid = forkOrDie();
  if (pid == 0) {
    capture.redirect();
    if (!applyOptions(options))
      die("cannot set the child up");
    action();
  }
  RunResult result;
  if (!waitInto(pid, options.timeoutSeconds, result))
    ADD_FAILURE() << "a child ran for more than " << options.timeoutSeconds << " s and is killed";
  capture.readInto(result);
  return result;
}

// noexcept: gtest would catch an exception and go on with the next test in the child.
int callBody(const std::function<int()>& body) noexcept {
  return body();
}

}  // namespace

Capture::Capture()
    : out(::memfd_create("out", MFD_CLOEXEC)), err(::memfd_create("err", MFD_CLOEXEC)) {
  if (!out || !err)
    die("memfd_create");
}

void Capture::redirect() const {
  const UniqueFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ::dup2(null.get(), 0);
  ::dup2(out.get(), 1);
  ::dup2(err.get(), 2);
}

void Capture::readInto(RunResult& result) const {
  result.out = captured(out);
  result.err = captured(err);
}

std::ostream& operator<<(std::ostream& stream, const RunResult& result) {
  if (result.signal != 0)
    stream << "ended by signal " << result.signal;
  else
    stream << "exit status " << result.status;
  return stream << "\nstdout:\n" << result.out << "\nstderr:\n" << result.err;
}

RunResult runInChild(const std::function<int()>& body, const RunOptions& options) {
  return forkAndCollect(options, [&body] {
    const int status = callBody(body);
    std::exit(::testing::Test::HasFailure() ? kChildExpectationFailed : status);
  });
}

RunResult runProgram(const std::vector<std::string>& argv, const RunOptions& options) {
  return forkAndCollect(options, [&argv] { execProgram(argv); });
}

void execProgram(const std::vector<std::string>& argv) {
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& argument : argv)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  ::execvp(pointers[0], pointers.data());
  std::fprintf(stderr, "test support: cannot run %s: %s\n", pointers[0], std::strerror(errno));
  ::_exit(127);
}

pid_t startProgram(const std::vector<std::string>& argv) {
  const pid_t pid = forkOrDie();
  if (pid == 0)
    execProgram(argv);
  return pid;
}

RunResult stopProgram(pid_t pid) {
  RunResult result;
  ::kill(pid, SIGTERM);
  waitInto(pid, 10, result);
  return result;
}

std::string binaryPath(const std::string& name) {
  return std::string(IDSHIFT_BINARY_DIR "/") + name;
}
