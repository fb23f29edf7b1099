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
constexpr int kCommandMilliseconds = 4000;
constexpr std::chrono::seconds kNoRemembered{3};

// Starts the command with empty input and output, and with no signal blocked. -1 on failure.
pid_t start(const std::vector<std::string>& words) {
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
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = -1;
  const int error = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error == 0)
    return child;
  TELL("online_check", "zonagent: cannot run the online check %s: %s", argv[0], strerror(error));
  return -1;
}

bool succeeds(const std::vector<std::string>& words) {
  const pid_t child = start(words);
  if (child < 0)
    return false;
  // By number: glibc 2.36 declares pidfd_open() without extern "C".
  const UniqueFd handle(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  pollfd entry = {handle.get(), POLLIN, 0};
  if (!handle || poll(&entry, 1, kCommandMilliseconds) != 1)
    kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
