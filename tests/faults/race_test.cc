// Somebody moves files and directories while the real programs run, at every system call in turn.
// Everything outside the tree keeps its owner, mode and contents.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "tests/faults/fault_world.h"
#include "tests/support/attributes.h"
#include "tests/support/std_trees.h"

namespace {

void exchange(const char* a, const char* b) {
  syscall(SYS_renameat2, AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}

struct Move {
  const char* what;
  void (*doIt)();
};

const Move kMoves[] = {
    {"directory for a link", [] { exchange("/trees/t/dir", "/trees/bait-dir"); }},
    {"file for a link", [] { exchange("/trees/t/file", "/trees/bait-file"); }},
    {"file for a name of root's", [] { exchange("/trees/t/suid", "/trees/bait-name"); }},
    {"directory moved away", [] { EXPECT_EQ(rename("/trees/t/dir/sub", "/trees/moved"), 0); }},
};

constexpr long kChangeMode = 452;  // fchmodat2, which the C library does not know yet

// Whether the call opens or leaves a directory, looks for attributes, or changes an owner, a mode
// or an attribute.
bool isTurningPoint(const SystemCall& call) {
  const bool opensDirectory =
      call.number == SYS_openat && (call.arguments[2] & (O_DIRECTORY | O_PATH)) != 0;
  return opensDirectory || call.number == SYS_chdir || call.number == SYS_llistxattr ||
         call.number == kChangeMode || isChange(call);
}

// Outside of the walked tree is a copy of its names. All its entries have ids that the maps know.
class Race : public FaultTest {
 protected:
  void prepare() {
    resetWorld();
    for (const char* left : {"/trees/moved", "/trees/outside", "/trees/bait-dir",
                             "/trees/bait-file", "/trees/bait-name"})
      std::filesystem::remove_all(left);  // after an exchange this is the directory of the tree
    plant("/trees", {"d 500:100 outside", "d 501:101 outside/dir",
                     "-6755 502:100 outside/dir/inner kept", "d 501:101 outside/dir/sub",
                     "-6755 500:100 outside/dir/sub/deep kept", "-6755 500:100 outside/file kept",
                     "-6755 0:0 outside/victim kept", "d 500:100 outside/sub",
                     "-6755 500:100 outside/sub/deep kept", "l 0:0 bait-dir /trees/outside/dir",
                     "l 0:0 bait-file /trees/outside/file", "h 0:0 bait-name outside/victim"});
    for (const char* name : {"outside/file", "outside/dir", "t/file", "t/suid"})
      setAcl("/trees/" + std::string(name), "u:500:r");
    setCapability("/trees/t/file", 2);
    // Users can write this directory, so the walk has to pin everything in it.
    ASSERT_EQ(chmod("/trees/t", 0777), 0);
    sentinel = takeSnapshot("/trees/outside");
  }

  // Makes each move at every call; a sample has at least every turning point.
  void moveAtEachCall(bool whileUndoing) {
    keepAttributes();
    const std::vector<std::string> argv = whileUndoing ? undo() : commitAll();
    for (const Move& move : kMoves) {
      bool isMoved = false;
      const CallHook doIt = [&](const SystemCall&) {
        isMoved = true;
        move.doIt();
        return CallVerdict{};
      };
      const std::vector<Instants> instants = {
          {"before call", isAnyCall, sampled(97), doIt},
          {"before turning point", isTurningPoint, sampled(1), doIt}};
      SCOPED_TRACE(move.what);
      sweep(instants, [&](const CallHook& hook) {
        isMoved = false;
        prepare();
        EXPECT_TRUE(!whileUndoing || runProgram(commitAll()).status == 0);
        EXPECT_EQ(runTraced(argv, hook).signal, 0);
        expectSentinel();
        return isMoved;
      });
      // The last run ended before the move, undisturbed.
      EXPECT_EQ(ownerOf("/trees/t/dir/inner"), whileUndoing ? "502:100" : "502:10000");
    }
  }

  void expectSentinel() const { EXPECT_TRUE(sameTree(sentinel, takeSnapshot("/trees/outside"))); }

  TreeSnapshot sentinel;
};

}  // namespace

TEST_F(Race, OneMoveBeforeAnyCallOfACommit) {
  moveAtEachCall(false);
}

TEST_F(Race, OneMoveBeforeAnyCallOfAnUndo) {
  moveAtEachCall(true);
}

// Both directories are moved to another parent while the walk is in one of them, so ".." leads to
// that parent. With few descriptors the walk goes back by "..".
TEST_F(Race, NeighboursMovedAwayWhileOneIsLeft) {
  const struct {
    const char* limit;
    const char* message;
  } rows[] = {{"", "Error: cannot opendir: /trees/t/dir/"},
              {"ulimit -n 16; ", "Warning: skipping /trees/t/dir: Stale file handle\n"}};
  for (const auto& row : rows) {
    prepare();
    plant("/trees/t/dir",
          {"d 500:100 east", "- 500:100 east/file", "d 500:100 west", "- 500:100 west/file"});
    bool isMoved = false;
    const auto move = [&](const SystemCall& call) {
      const std::string link = "/proc/" + std::to_string(call.pid) + "/cwd";
      const bool isLeaving = call.number == SYS_chdir ||
                             (call.number == SYS_openat && (call.arguments[2] & O_DIRECTORY) != 0);
      if (isMoved || !isLeaving || !std::filesystem::read_symlink(link).native().ends_with("st"))
        return CallVerdict{};
      isMoved = true;
      EXPECT_EQ(rename("/trees/t/dir/east", "/trees/outside/east"), 0);
      EXPECT_EQ(rename("/trees/t/dir/west", "/trees/outside/west"), 0);
      sentinel = takeSnapshot("/trees/outside");
      return CallVerdict{};
    };
    const RunResult result =
        runTraced({"/bin/sh", "-c",
                   std::string(row.limit) + "exec " + binaryPath("idshift") + " -c /trees/t"},
                  move);
    EXPECT_TRUE(isMoved);
    EXPECT_TRUE(contains(result.err, row.message)) << result;
    expectSentinel();
  }
}
