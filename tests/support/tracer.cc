#include "tests/support/tracer.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "services/unique_fd.h"

namespace {

// The state of one traced process between two stops.
class Tracee {
 public:
  explicit Tracee(const CallHook& callHook) : hook(callHook) {}

  void run(pid_t tracedPid, RunResult& result) {
    pid = tracedPid;
    waitpid(pid, &status, 0);  // the SIGSTOP before the exec
    ptrace(PTRACE_SETOPTIONS, pid, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC);
    for (int deliver = 0; WIFSTOPPED(status); deliver = handleStop()) {
      ptrace(PTRACE_SYSCALL, pid, nullptr, deliver);
      waitpid(pid, &status, 0);
    }
    result.noteEnd(status);
  }

  uint64_t calls = 0;

 private:
  // Returns the signal to deliver, 0 for none.
  int handleStop() {
    running = running || status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXEC << 8));
    if (running && WSTOPSIG(status) == (SIGTRAP | 0x80))
      handleSystemCall();
    return (WSTOPSIG(status) & 0x7f) == SIGTRAP ? 0 : WSTOPSIG(status);
  }

  void handleSystemCall() {
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT && killAtExit)
      kill(pid, SIGKILL);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
      return;
    SystemCall call{.index = ++calls, .number = static_cast<long>(info.entry.nr), .pid = pid};
    std::ranges::copy(info.entry.args, call.arguments.begin());
    const CallVerdict verdict = hook(call);
    killAtExit = verdict.kind == CallVerdict::kKillAfter;
    if (verdict.kind == CallVerdict::kKill)
      kill(pid, SIGKILL);
    else if (verdict.kind == CallVerdict::kFail)
      failCall(verdict.error);
  }

  void failCall(int error) const {
    user_regs_struct registers = {};
    ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
    registers.orig_rax = ~0ULL;  // no such call: the kernel makes none, and leaves the result be
    registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
    ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
  }

  CallHook hook;  // a copy, so that what it counts begins anew with each run
  pid_t pid = -1;
  int status = 0;
  bool running = false;  // false until the exec has replaced the test program
  bool killAtExit = false;
};

}  // namespace

std::string SystemCall::text(size_t which) const {
  const UniqueFd memory(
      open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
  std::string text(PATH_MAX, '\0');
  const ssize_t length =
      pread(memory.get(), text.data(), text.size(), static_cast<off_t>(arguments.at(which)));
  text.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
  return text.substr(0, text.find('\0'));
}

std::string SystemCall::descriptorPath(size_t which) const {
  const std::string link = "/proc/" + std::to_string(pid) + "/fd/" +
                           std::to_string(static_cast<int>(arguments.at(which)));
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

TracedResult runTraced(const std::vector<std::string>& argv, const CallHook& hook) {
  const auto traced = [&argv] {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 0);  // the leak check needs ptrace for itself
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execProgram(argv);
  };
  Tracee tracee(hook);
  RunResult result =
      runForked(traced, [&](pid_t pid, RunResult& ended) { tracee.run(pid, ended); });
  return {std::move(result), tracee.calls};
}

CallHook atCall(CallFilter matters, uint64_t nth, const CallHook& then) {
  return [=, left = nth](const SystemCall& call) mutable {
    return matters(call) && --left == 0 ? then(call) : CallVerdict{};
  };
}
