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
  EXPECT_EQ(runShell("exit 0"), 0);
  EXPECT_EQ(runShell("exit 3"), 3);
  EXPECT_EQ(runShell("kill -9 $$"), 128 + 9);
  const int descriptors[] = {0, 1, 2};
  const char* argv[] = {"missing", nullptr};
  EXPECT_EQ(spawnfv(0, 3, descriptors, "/nonexistent/program", argv), kSpawnFailed);
}

TEST(Spawn, TheExitStatusArrivesThoughTheParentIgnoredSigchld) {
  ::signal(SIGCHLD, SIG_IGN);
  interrupt::install();
  EXPECT_EQ(runShell("exit 0"), 0);
}

TEST(Spawn, TheChildGetsItsThreeDescriptorsAndNoOther) {
  const UniqueFd leaked(::open("/dev/null", O_RDONLY));  // NOLINT: inheritable on purpose
  EXPECT_EQ(runShell("test -e /proc/$$/fd/" + std::to_string(leaked.get())), 1);
}

TEST(Spawn, DescriptorsMayOverlapTheirTargets) {
  // Standard input is the output file's descriptor number and the other way round.
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd readEnd(ends[0]);
  const UniqueFd writeEnd(ends[1]);
  const int descriptors[] = {2, writeEnd.get(), 0};
  const char* argv[] = {"sh", "-c", "echo crossed", nullptr};
  EXPECT_EQ(spawnfv(0, 3, descriptors, "/bin/sh", argv), 0);
  char buffer[16] = {};
  EXPECT_EQ(::read(readEnd.get(), buffer, sizeof buffer), 8);
  EXPECT_STREQ(buffer, "crossed\n");
}

TEST(Spawn, TemporaryFilesAreNamedInPlaceAndClosedOnExec) {
  std::string name = testing::TempDir() + "/spawn-test.XXXXXX";
  const UniqueFd fd(mkstemp(name));
  EXPECT_TRUE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(::unlink(name.c_str()), 0);
}
