#include "services/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

// Gives the child exactly `descriptors`, as 0 upward. They are copied twice: first to numbers above
// all of them, then down to their places. A single copy could overwrite a descriptor that is still
// to be copied.
bool arrangeDescriptors(posix_spawn_file_actions_t* actions, int count, const int* descriptors) {
  const int above = std::max(count, *std::max_element(descriptors, descriptors + count) + 1);
  for (int i = 0; i < count; ++i) {
    if (posix_spawn_file_actions_adddup2(actions, descriptors[i], above + i) != 0)
      return false;
  }
  for (int i = 0; i < count; ++i) {
    if (posix_spawn_file_actions_adddup2(actions, above + i, i) != 0)
      return false;
  }
  return posix_spawn_file_actions_addclosefrom_np(actions, count) == 0;
}

// SIGXFSZ, which this program ignores, gets its default action in the child. exec itself resets the
// signals that are handled. What the parent of this program ignored (nohup) stays ignored.
bool arrangeSignals(posix_spawnattr_t* attributes) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGXFSZ);
  return posix_spawnattr_setsigdefault(attributes, &signals) == 0 &&
         posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGDEF) == 0;
}

int waitForChild(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1) {
    if (errno != EINTR)
      return kSpawnFailed;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int spawnfv(int /*reserved*/,
            int count,
            const int* descriptors,
            const char* program,
            const char* const* argv) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  if (count <= 0 || posix_spawn_file_actions_init(&actions) != 0)
    return kSpawnFailed;
  if (posix_spawnattr_init(&attributes) != 0) {
    posix_spawn_file_actions_destroy(&actions);
    return kSpawnFailed;
  }
  pid_t child = -1;
  const bool started = arrangeDescriptors(&actions, count, descriptors) &&
                       arrangeSignals(&attributes) &&
                       posix_spawn(&child, program, &actions, &attributes,
                                   const_cast<char* const*>(argv), environ) == 0;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return started ? waitForChild(child) : kSpawnFailed;
}

int mkstemp(std::string& nameTemplate) {
  return ::mkostemp(nameTemplate.data(), O_CLOEXEC);
}
