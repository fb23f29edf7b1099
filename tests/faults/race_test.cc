// Somebody moves things about while the real programs run: at every system call in turn, and in a
// loop beside it. What stands outside the tree keeps owner, mode and contents.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/faults/fault_world.h"
#include "tests/support/std_trees.h"

namespace {

void exchange(const char* a, const char* b) {
  syscall(SYS_renameat2, AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}

// Outside of the walked tree stands a copy of its names, all of them with ids that the maps know.
class Race : public FaultTest {
 protected:
  void prepare() {
    resetWorld();
    std::filesystem::remove_all("/trees/outside");
    const TreeEntry outside[] = {
        {"dir", 'd', 0755, 501, 101, ""},          {"dir/inner", '-', 06755, 502, 100, "kept"},
        {"dir/sub", 'd', 0755, 501, 101, ""},      {"dir/sub/deep", '-', 06755, 500, 100, "kept"},
        {"file", '-', 06755, 500, 100, "kept"},    {"sub", 'd', 0755, 500, 100, ""},
        {"sub/deep", '-', 06755, 500, 100, "kept"}};
    makeTree("/trees/outside", outside);
    ASSERT_EQ(chown("/trees/outside", 500, 100), 0);
    // After an exchange the bait is the tree's own directory.
    std::filesystem::remove_all("/trees/bait-dir");
    std::filesystem::remove_all("/trees/bait-file");
    ASSERT_EQ(symlink("/trees/outside/dir", "/trees/bait-dir"), 0);
    ASSERT_EQ(symlink("/trees/outside/file", "/trees/bait-file"), 0);
    // Users can write the directories, so that everything in them has to be pinned.
    ASSERT_EQ(chmod("/trees/t", 0777), 0);
    sentinel = takeSnapshot("/trees/outside");
  }

  void expectSentinel() const { EXPECT_TRUE(sameTree(sentinel, takeSnapshot("/trees/outside"))); }

  TreeSnapshot sentinel;
};

constexpr uint64_t kEndless = 100000;

struct Move {
  const char* what;
  void (*doIt)();
};

const Move kMoves[] = {
    {"directory for a link", [] { exchange("/trees/t/dir", "/trees/bait-dir"); }},
    {"file for a link", [] { exchange("/trees/t/file", "/trees/bait-file"); }},
    {"directory moved away", [] { rename("/trees/t/dir/sub", "/trees/moved"); }},
};

}  // namespace

TEST_F(Race, OneMoveBeforeAnyCallOfACommit) {
  addSetting("idshift.preserve.execution.bits = true");
  const uint64_t stride = sampled(11);
  for (const Move& move : kMoves) {
    for (uint64_t index = 1; index < kEndless; index += stride) {
      SCOPED_TRACE(std::string(move.what) + " before call " + std::to_string(index));
      std::filesystem::remove_all("/trees/moved");
      prepare();
      const TracedResult result = runTraced(commitAll(), [&](const SystemCall& call) {
        if (call.index == index)
          move.doIt();
        return CallVerdict{};
      });
      expectSentinel();
      if (HasFailure())
        return;
      if (result.calls < index) {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(takeSnapshot("/trees/t").owners().at("dir/inner"), "502:10000");
        break;
      }
    }
  }
}

TEST_F(Race, OneMoveBeforeAnyCallOfAnUndo) {
  const uint64_t stride = sampled(11);
  for (const Move& move : kMoves) {
    for (uint64_t index = 1; index < kEndless; index += stride) {
      SCOPED_TRACE(std::string(move.what) + " before call " + std::to_string(index));
      std::filesystem::remove_all("/trees/moved");
      prepare();
      ASSERT_EQ(runProgram(commitAll()).status, 0);
      const TracedResult result = runTraced(undo(), [&](const SystemCall& call) {
        if (call.index == index)
          move.doIt();
        return CallVerdict{};
      });
      expectSentinel();
      if (HasFailure())
        return;
      if (result.calls < index)
        break;
    }
  }
}

TEST_F(Race, ExchangesInALoop) {
  const int rounds = sampled(8) == 1 ? 400 : 30;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    prepare();
    std::atomic<bool> done = false;
    std::thread mover([&done] {
      while (!done) {
        exchange("/trees/t/dir", "/trees/bait-dir");
        exchange("/trees/t/file", "/trees/bait-file");
      }
    });
    runProgram({binaryPath("idshift"), "-c", "-R", "/trees/t"});
    done = true;
    mover.join();
    expectSentinel();
  }
}
