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
#include "zonagent/agent_log.h"

namespace zonagent {
namespace {

using Clock = std::chrono::steady_clock;

// Less than the deadline of a lookup, so that a hanging command ends before its lookup is given up.
constexpr std::chrono::seconds kCommandTime{4};
constexpr std::chrono::seconds kNoRemembered{3};

// Starts the command in a process group of its own, with empty input and output, no other
// descriptor, no signal blocked and all at their default. Returns an errno.
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

// Whether the child ends in time; one that does not is killed with all its group.
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

bool succeeds(const std::vector<std::string>& words) {
  pid_t child = -1;
  if (const int error = start(words, child); error != 0) {
    TELL("online_check", "zonagent: cannot run the online check %s: %s", words[0].c_str(),
         strerror(error));
    return false;
  }
  const bool inTime = endsInTime(child);
  int status = 0;
  pid_t ended = -1;
  do
    ended = waitpid(child, &status, 0);
  while (ended < 0 && errno == EINTR);
  return inTime && ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

OnlineCheck::OnlineCheck(const std::string& command) {
  std::istringstream stream(command);
  for (std::string word; stream >> word;)
    words.push_back(word);
}

Online OnlineCheck::ask() {
  if (words.empty())
    return Online::NotAsked;
  const Clock::time_point asked = Clock::now();
  const std::lock_guard guard(mutex);
  if ((verdict == Online::Yes && began >= asked) ||
      (verdict == Online::No && Clock::now() < ended + kNoRemembered))
    return verdict;
  began = Clock::now();
  verdict = succeeds(words) ? Online::Yes : Online::No;
  ended = Clock::now();
  return verdict;
}

void OnlineCheck::forget() {
  if (words.empty())
    return;
  // A worker may hold the lock for as long as the command runs; its verdict is then fresh anyway.
  const std::unique_lock guard(mutex, std::try_to_lock);
  if (guard.owns_lock())
    verdict = Online::NotAsked;
}

}  // namespace zonagent
