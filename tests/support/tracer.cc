#include "tests/support/tracer.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace {

// The state of one traced process between two stops.
class Tracee {
 public:
  Tracee(pid_t tracedPid, const CallHook& callHook) : pid(tracedPid), hook(callHook) {}

  TracedResult run() {
    int status = 0;
    waitpid(pid, &status, 0);  // the SIGSTOP before the exec
    ptrace(PTRACE_SETOPTIONS, pid, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC);
    int deliver = 0;
    for (;;) {
      ptrace(PTRACE_SYSCALL, pid, nullptr, deliver);
      if (waitpid(pid, &status, 0) != pid)
        return result;
      if (WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
        return result;
      }
      if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
        return result;
      }
      deliver = handleStop(status);
    }
  }

 private:
  // Returns the signal to deliver, 0 for none.
  int handleStop(int status) {
    const int stopSignal = WSTOPSIG(status);
    if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXEC << 8))) {
      running = true;
      return 0;
    }
    if (stopSignal != (SIGTRAP | 0x80))
      return stopSignal == SIGTRAP ? 0 : stopSignal;
    if (running)
      handleSystemCall();
    return 0;
  }

  void handleSystemCall() {
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
      if (pendingError != 0)
        setResult(-pendingError);
      if (killAtExit)
        kill(pid, SIGKILL);
      pendingError = 0;
      return;
    }
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
      return;
    SystemCall call{
        .index = ++result.calls, .number = static_cast<long>(info.entry.nr), .pid = pid};
    for (size_t i = 0; i < call.arguments.size(); ++i)
      call.arguments[i] = info.entry.args[i];
    const CallVerdict verdict = hook(call);
    killAtExit = verdict.kind == CallVerdict::kKillAfter;
    if (verdict.kind == CallVerdict::kKill) {
      kill(pid, SIGKILL);
    } else if (verdict.kind == CallVerdict::kFail) {
      skipCall();
      pendingError = verdict.error;
    }
  }

#ifdef __x86_64__
  void skipCall() const {
    user_regs_struct registers = {};
    ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
    registers.orig_rax = ~0ULL;  // no such call: the kernel makes none
    ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
  }

  void setResult(long value) const {
    user_regs_struct registers = {};
    ptrace(PTRACE_GETREGS, pid, nullptr, &registers);
    registers.rax = static_cast<unsigned long long>(value);
    ptrace(PTRACE_SETREGS, pid, nullptr, &registers);
  }
#else
#error "the tracer knows the registers of x86-64 only"
#endif

  pid_t pid;
  const CallHook& hook;
  TracedResult result;
  bool running = false;  // false until the exec has replaced the test program
  int pendingError = 0;
  bool killAtExit = false;
};

}  // namespace

std::string SystemCall::text(size_t which) const {
  std::string text;
  char buffer[256];
  uint64_t address = arguments.at(which);
  while (text.size() < 65536) {
    // Up to the end of a page at a time: what lies behind may not be mapped.
    const size_t wanted = std::min<size_t>(sizeof buffer, 4096 - address % 4096);
    iovec local = {buffer, wanted};
    iovec remote = {reinterpret_cast<void*>(address), wanted};  // NOLINT: an address over there
    const ssize_t length = process_vm_readv(pid, &local, 1, &remote, 1, 0);
    if (length <= 0)
      return {};
    const std::string_view piece(buffer, static_cast<size_t>(length));
    const size_t end = piece.find('\0');
    text.append(piece.substr(0, end));
    if (end != std::string_view::npos)
      return text;
    address += static_cast<uint64_t>(length);
  }
  return text;
}

std::string SystemCall::descriptorPath(size_t which) const {
  const std::string link = "/proc/" + std::to_string(pid) + "/fd/" +
                           std::to_string(static_cast<int>(arguments.at(which)));
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

TracedResult runTraced(const std::vector<std::string>& argv, const CallHook& hook) {
  const Capture capture;
  const pid_t pid = fork();
  if (pid == 0) {
    capture.redirect();
    setenv("ASAN_OPTIONS", "detect_leaks=0", 0);  // the leak check needs ptrace for itself
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execProgram(argv);
  }
  const CallHook ownHook = hook;  // so that what it counts begins anew with each run
  TracedResult result = Tracee(pid, ownHook).run();
  capture.readInto(result);
  return result;
}

CallHook atCall(CallFilter matters, uint64_t nth, const CallHook& then) {
  return [=, left = nth](const SystemCall& call) mutable {
    return matters(call) && --left == 0 ? then(call) : CallVerdict{};
  };
}
