#include "tests/support/child.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <ostream>

#include <gtest/gtest.h>

#include "services/unique_fd.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  UniqueFd readEnd;
  UniqueFd writeEnd;
};

[[noreturn]] void die(const char* what) {
  std::fprintf(stderr, "test support: %s: %s\n", what, std::strerror(errno));
  std::abort();
}

Pipe makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0)
    die("pipe2");
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// The raw call: this glibc declares its wrapper without C linkage.
UniqueFd openPidFd(pid_t pid) {
  UniqueFd fd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!fd)
    die("pidfd_open");
  return fd;
}

void setNonBlocking(int fd) {
  if (::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) != 0)
    die("fcntl");
}

// Appends what is there to `text`. False at the end of the stream.
bool readSome(int fd, std::string& text) {
  std::array<char, 65536> buffer{};
  while (true) {
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count > 0)
      text.append(buffer.data(), static_cast<size_t>(count));
    else if (count < 0 && errno == EINTR)
      continue;
    else
      return count < 0 && errno == EAGAIN;
  }
}

// The parent's side of one child.
struct Running {
  pid_t pid = -1;
  UniqueFd pidFd;
  UniqueFd input;
  UniqueFd out;
  UniqueFd err;
};

// Writes as much of `text` as the pipe takes; closes the pipe when all is written or nobody reads.
void feed(UniqueFd& input, std::string_view& text) {
  const ssize_t count = ::write(input.get(), text.data(), text.size());
  if (count > 0)
    text.remove_prefix(static_cast<size_t>(count));
  const bool retry = count < 0 && (errno == EAGAIN || errno == EINTR);
  if (text.empty() || (count < 0 && !retry))
    input.reset();
}

void waitInto(pid_t pid, RunResult& result) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR)
      die("waitpid");
  if (WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
}

int millisecondsUntil(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// Moves bytes both ways until the child has ended, then reads what is left in the pipes.
RunResult collect(Running child, const RunOptions& options) {
  const auto deadline = Clock::now() + std::chrono::seconds(options.timeoutSeconds);
  RunResult result;
  std::string_view toWrite = options.input;
  if (toWrite.empty())
    child.input.reset();
  while (true) {
    pollfd fds[] = {{child.pidFd.get(), POLLIN, 0},
                    {child.out.get(), POLLIN, 0},
                    {child.err.get(), POLLIN, 0},
                    {child.input.get(), POLLOUT, 0}};
    const int ready = ::poll(fds, std::size(fds), millisecondsUntil(deadline));
    if (ready < 0 && errno != EINTR)
      die("poll");
    if (ready == 0) {
      ADD_FAILURE() << "a child ran for more than " << options.timeoutSeconds << " s and is killed";
      ::kill(child.pid, SIGKILL);
      break;
    }
    if (fds[1].revents != 0 && !readSome(child.out.get(), result.out))
      child.out.reset();
    if (fds[2].revents != 0 && !readSome(child.err.get(), result.err))
      child.err.reset();
    if (fds[3].revents != 0)
      feed(child.input, toWrite);
    if (fds[0].revents != 0)
      break;
  }
  waitInto(child.pid, result);
  if (child.out)
    readSome(child.out.get(), result.out);
  if (child.err)
    readSome(child.err.get(), result.err);
  return result;
}

// In the child: identity, directory and environment. False with errno.
bool applyOptions(const RunOptions& options) {
  for (const std::string& assignment : options.env) {
    const size_t equals = assignment.find('=');
    ::setenv(assignment.substr(0, equals).c_str(), assignment.substr(equals + 1).c_str(), 1);
  }
  if (!options.cwd.empty() && ::chdir(options.cwd.c_str()) != 0)
    return false;
  if (!options.uid)
    return true;
  const gid_t gid = *options.uid;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(gid, gid, gid) == 0 &&
         ::setresuid(*options.uid, *options.uid, *options.uid) == 0;
}

// Forks; in the child, `action` runs behind the pipes and must not return.
RunResult forkAndCollect(const RunOptions& options, const std::function<void()>& action) {
  // What is still in the parent's buffers would be printed a second time by the child's exit().
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
  // A child that reads nothing must not take this process down.
  std::signal(SIGPIPE, SIG_IGN);
  Pipe input = makePipe();
  Pipe out = makePipe();
  Pipe err = makePipe();
  const pid_t pid = ::fork();
  if (pid < 0)
    die("fork");
  if (pid == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    ::dup2(input.readEnd.get(), 0);
    ::dup2(out.writeEnd.get(), 1);
    ::dup2(err.writeEnd.get(), 2);
    input = Pipe{};
    out = Pipe{};
    err = Pipe{};
    if (!applyOptions(options)) {
      std::fprintf(stderr, "test support: cannot set the child up: %s\n", std::strerror(errno));
      ::_exit(127);
    }
    action();
    ::_exit(127);
  }
  Running child{pid, openPidFd(pid), std::move(input.writeEnd), std::move(out.readEnd),
                std::move(err.readEnd)};
  input.readEnd.reset();
  out.writeEnd.reset();
  err.writeEnd.reset();
  setNonBlocking(child.input.get());
  setNonBlocking(child.out.get());
  setNonBlocking(child.err.get());
  return collect(std::move(child), options);
}

std::vector<char*> argumentVector(const std::vector<std::string>& argv) {
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& argument : argv)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

void execOrExit(const std::vector<std::string>& argv) {
  const std::vector<char*> pointers = argumentVector(argv);
  ::execvp(pointers[0], pointers.data());
  std::fprintf(stderr, "test support: cannot run %s: %s\n", pointers[0], std::strerror(errno));
  ::_exit(127);
}

// noexcept: gtest would catch an exception and go on with the next test in the child.
int callBody(const std::function<int()>& body) noexcept {
  return body();
}

}  // namespace

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
  return forkAndCollect(options, [&argv] { execOrExit(argv); });
}

pid_t startProgram(const std::vector<std::string>& argv) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0)
    die("fork");
  if (pid == 0)
    execOrExit(argv);
  return pid;
}

RunResult stopProgram(pid_t pid) {
  ::kill(pid, SIGTERM);
  const UniqueFd pidFd = openPidFd(pid);
  pollfd ended{pidFd.get(), POLLIN, 0};
  if (::poll(&ended, 1, 10000) == 0)
    ::kill(pid, SIGKILL);
  RunResult result;
  waitInto(pid, result);
  return result;
}

std::string binaryPath(const std::string& name) {
  return std::string(IDSHIFT_BINARY_DIR "/") + name;
}
