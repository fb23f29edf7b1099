#include "zonagent/online_check.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "services/unique_fd.h"

namespace zonagent {
namespace {

using Clock = std::chrono::steady_clock;

// Less than the deadline of a lookup, so that a hanging command is killed before the server gives
// the lookup up.
constexpr std::chrono::seconds kCommandTime{4};
constexpr std::chrono::seconds kNoRemembered{3};

// Starts the command in a process group of its own. Its standard streams are /dev/null, it inherits
// no other descriptor, no signal is blocked or ignored. Returns 0 or an errno.
int start(const std::vector<std::string>& words, pid_t& child) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  for (const int descriptor : {0, 1, 2})
    posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  const int error = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return error;
}

// Whether the child ends in time. Kills a child that does not, with its process group.
bool endsInTime(pid_t child) {
  // By number: glibc 2.36 declares pidfd_open() without extern "C".
  const UniqueFd handle(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  pollfd entry = {handle.get(), POLLIN, 0};
  const auto limit = std::chrono::milliseconds(kCommandTime).count();
  const bool inTime = handle && poll(&entry, 1, static_cast<int>(limit)) == 1;
  if (!inTime)
    kill(-child, SIGKILL);
  return inTime;
}

OnlineAnswer judge(int waitStatus) {
  if (WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0)
    return {Online::Yes, ""};
  return {Online::No,
          WIFEXITED(waitStatus)
              ? "the online check fails with status " + std::to_string(WEXITSTATUS(waitStatus))
              : "the online check dies of signal " + std::to_string(WTERMSIG(waitStatus))};
}

OnlineAnswer run(const std::vector<std::string>& words) {
  pid_t child = -1;
  if (const int error = start(words, child); error != 0)
    return {Online::No, std::string("the online check cannot be run: ") + strerror(error)};
  const bool inTime = endsInTime(child);
  int status = 0;
  pid_t ended = -1;
  do
    ended = waitpid(child, &status, 0);
  while (ended < 0 && errno == EINTR);
  if (!inTime)
    return {Online::No, "the online check does not end in time"};
  if (ended != child)
    return {Online::No, "the online check's exit status is unknown"};
  return judge(status);
}

}  // namespace

Online speaksFor(const CheckResult& last,
                 Evidence evidence,
                 CheckResult::Time came,
                 CheckResult::Time now,
                 std::chrono::seconds window) {
  switch (last.answer.verdict) {
    case Online::Yes: {
      const bool covered =
          came <= last.began || (evidence == Evidence::Record && came < last.began + window);
      return covered ? Online::Yes : Online::NotAsked;
    }
    case Online::No:
      return now < last.ended + kNoRemembered ? Online::No : Online::NotAsked;
    case Online::NotAsked:
      break;
  }
  return Online::NotAsked;
}

OnlineCheck::OnlineCheck(const std::string& command, std::chrono::seconds window)
    : recordWindow(window) {
  std::istringstream stream(command);
  for (std::string word; stream >> word;)
    words.push_back(word);
}

OnlineAnswer OnlineCheck::ask(Evidence evidence) {
  if (words.empty())
    return {};
  const Clock::time_point came = Clock::now();
  const std::lock_guard guard(mutex);
  if (speaksFor(last, evidence, came, Clock::now(), recordWindow) == Online::NotAsked) {
    last.began = Clock::now();
    last.answer = run(words);
    last.ended = Clock::now();
  }
  return last.answer;
}

void OnlineCheck::forget() {
  // A worker that runs the command holds the lock, and its result will be new anyway. The server's
  // loop, which calls this, must not wait for it.
  const std::unique_lock guard(mutex, std::try_to_lock);
  if (guard.owns_lock())
    last = {};
}

std::string OnlineCheck::summary() const {
  if (words.empty())
    return "no online check";
  return "online check " + words[0] + ", for records good for " +
         std::to_string(recordWindow.count()) + " s";
}

}  // namespace zonagent
