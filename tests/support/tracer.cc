#include "tests/support/tracer.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

namespace {

void changeRegister(pid_t pid, unsigned long long user_regs_struct::*which, long long value) {
  user_regs_struct registers = {};
  ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
  registers.*which = static_cast<unsigned long long>(value);
  ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
}

// Lets the process run to its next stop; `deliver` is a signal or 0. Returns the wait status.
int nextStop(pid_t pid, int deliver) {
  int status = 0;
  ptrace(PTRACE_SYSCALL, pid, nullptr, deliver);
  waitpid(pid, &status, 0);
  return status;
}

// Returns the wait status.
int trace(pid_t pid, const CallHook& hook, uint64_t& calls) {
  bool running = false;  // false until the exec has replaced the test program
  CallVerdict verdict;
  waitpid(pid, nullptr, 0);  // the SIGSTOP before the exec
  ptrace(PTRACE_SETOPTIONS, pid, nullptr,
         PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC);
  int status = nextStop(pid, 0);
  while (WIFSTOPPED(status)) {
    running = running || status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXEC << 8));
    __ptrace_syscall_info info = {};
    if (running && WSTOPSIG(status) == (SIGTRAP | 0x80))
      ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT && verdict.kind == CallVerdict::kKillAfter)
      kill(pid, SIGKILL);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT && verdict.kind == CallVerdict::kFail)
      changeRegister(pid, &user_regs_struct::rax, -verdict.error);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      SystemCall call{.index = ++calls, .number = static_cast<long>(info.entry.nr), .pid = pid};
      std::ranges::copy(info.entry.args, call.arguments.begin());
      verdict = hook(call);
      if (verdict.kind == CallVerdict::kKill)
        kill(pid, SIGKILL);
      // A failing call becomes getpid(), and its result is exchanged at the call's end. A seccomp
      // filter of the machine sees the exchanged call, so it has to be a harmless one.
      if (verdict.kind == CallVerdict::kFail)
        changeRegister(pid, &user_regs_struct::orig_rax, SYS_getpid);
    }
    const bool isOurs = (WSTOPSIG(status) & 0x7f) == SIGTRAP;
    status = nextStop(pid, isOurs ? 0 : WSTOPSIG(status));
  }
  return status;
}

}  // namespace

std::string SystemCall::text(size_t which) const {
  std::ifstream memory("/proc/" + std::to_string(pid) + "/mem", std::ios::binary);
  memory.seekg(static_cast<std::streamoff>(arguments.at(which)));
  std::string text;
  std::getline(memory, text, '\0');
  return text;
}

std::string SystemCall::descriptorPath(size_t which) const {
  std::error_code error;  // without such a descriptor the path is empty
  return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" +
                                           std::to_string(static_cast<int>(arguments.at(which))),
                                       error);
}

TracedResult runTraced(const std::vector<std::string>& argv, const CallHook& hook) {
  const auto traced = [&argv] {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 0);  // the leak check needs ptrace for itself
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execProgram(argv);
  };
  uint64_t calls = 0;
  // A copy of the hook, so that its counters begin anew with each run.
  RunResult result =
      runForked(traced, [&calls, fresh = hook](pid_t pid) { return trace(pid, fresh, calls); });
  return {std::move(result), calls};
}

CallHook atCall(const CallFilter& matters, uint64_t nth, const CallHook& then) {
  return [=, left = nth](const SystemCall& call) mutable {
    return matters(call) && --left == 0 ? then(call) : CallVerdict{};
  };
}
