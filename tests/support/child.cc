#include "tests/support/child.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <ostream>

#include <gtest/gtest.h>

#include "services/unique_fd.h"
#include "tests/support/files.h"

namespace {

// Waits for the child and kills it when its time is over. Returns the wait status.
int waitFor(pid_t pid, int timeoutSeconds) {
  // The raw call: this glibc declares its wrapper without C linkage.
  const UniqueFd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  pollfd ended{pidFd.get(), POLLIN, 0};
  if (::poll(&ended, 1, timeoutSeconds * 1000) != 1) {
    ::kill(pid, SIGKILL);
    ADD_FAILURE() << "a child ran for more than " << timeoutSeconds << " s and is killed";
  }
  int status = 0;
  orDie(::waitpid(pid, &status, 0) == pid, "waitpid");
  return status;
}

RunResult resultOf(int waitStatus) {
  RunResult result;
  if (WIFEXITED(waitStatus))
    result.status = WEXITSTATUS(waitStatus);
  else
    result.signal = WTERMSIG(waitStatus);
  return result;
}

pid_t forkOrDie() {
  // The child's exit() would print again what the parent's buffers still hold.
  std::cout.flush();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  orDie(pid >= 0, "fork");
  return pid;
}

RunResult runWith(const RunOptions& options, const std::function<void()>& action) {
  const auto prepared = [&] {
    const uid_t id = options.uid.value_or(0);
    orDie(!options.uid || (::setgroups(0, nullptr) == 0 && ::setresgid(id, id, id) == 0 &&
                           ::setresuid(id, id, id) == 0),
          "cannot become another user");
    action();
  };
  return runForked(prepared, [&](pid_t pid) { return waitFor(pid, options.timeoutSeconds); });
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const RunResult& result) {
  return stream << "exit status " << result.status << ", signal " << result.signal << "\nstdout:\n"
                << result.out << "\nstderr:\n"
                << result.err;
}

RunResult runForked(const std::function<void()>& action, const std::function<int(pid_t)>& wait) {
  const UniqueFd in(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const UniqueFd out(::memfd_create("out", MFD_CLOEXEC));
  const UniqueFd err(::memfd_create("err", MFD_CLOEXEC));
  const pid_t pid = forkOrDie();
  if (pid == 0) {
    orDie(::dup2(in.get(), 0) == 0 && ::dup2(out.get(), 1) == 1 && ::dup2(err.get(), 2) == 2,
          "dup2");
    action();
    ::_exit(127);
  }
  RunResult result = resultOf(wait(pid));
  result.out = readFile("/proc/self/fd/" + std::to_string(out.get()));
  result.err = readFile("/proc/self/fd/" + std::to_string(err.get()));
  return result;
}

RunResult runInChild(const std::function<int()>& body, const RunOptions& options) {
  // noexcept: gtest would catch an exception and go on with the next test in the child.
  return runWith(options, [&body]() noexcept {
    const int status = body();
    std::exit(::testing::Test::HasFailure() ? 250 : status);
  });
}

RunResult runProgram(const std::vector<std::string>& argv, const RunOptions& options) {
  return runWith(options, [&argv] { execProgram(argv); });
}

void execProgram(const std::vector<std::string>& argv) {
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& argument : argv)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  ::execvp(pointers[0], pointers.data());
  ::perror(pointers[0]);
  ::_exit(127);
}

pid_t startProgram(const std::vector<std::string>& argv) {
  const pid_t pid = forkOrDie();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that aborts leaves nothing running
    execProgram(argv);
  }
  return pid;
}

RunResult stopProgram(pid_t pid) {
  ::kill(pid, SIGTERM);
  return resultOf(waitFor(pid, 10));
}
