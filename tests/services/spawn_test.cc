#include "services/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "services/interrupt.h"
#include "services/unique_fd.h"

namespace {

// The result of a shell script.
int runShell(const std::string& script) {
  const UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const int descriptors[] = {null.get(), null.get(), null.get()};
  const char* argv[] = {"sh", "-c", script.c_str(), nullptr};
  return spawnfv(0, 3, descriptors, "/bin/sh", argv);
}

}  // namespace

TEST(Spawn, Results) {
  EXPECT_EQ(runShell("exit 3"), 3);
  EXPECT_EQ(runShell("kill -9 $$"), 128 + 9);
  const int descriptors[] = {0, 1, 2};
  const char* argv[] = {"missing", nullptr};
  EXPECT_EQ(spawnfv(0, 3, descriptors, "/nonexistent/program", argv), kSpawnFailed);
  ::signal(SIGCHLD, SIG_IGN);  // as the parent may have left it
  interrupt::install();
  EXPECT_EQ(runShell("exit 3"), 3);
}

TEST(Spawn, TheChildGetsItsThreeDescriptorsAndNoOther) {
  const UniqueFd leaked(::open("/dev/null", O_RDONLY));  // NOLINT: inheritable on purpose
  EXPECT_EQ(runShell("test -e /proc/$$/fd/" + std::to_string(leaked.get())), 1);
}
