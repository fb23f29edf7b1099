// The threads that read ahead: the order of their work, when they are started, which directories
// they leave out, and how a thread that hangs is left behind.
#include "entry/read_ahead.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "entry/ahead_queue.h"
#include "entry/wait_watch.h"
#include "tests/support/sandbox.h"
#include "tests/support/std_trees.h"
#include "tests/support/users_mount.h"

namespace {

namespace fs = std::filesystem;

AheadWork listing(uint64_t inode, const std::string& path) {
  return {{1, inode}, path, 0, {}};
}

// Takes all work in order, and adds none.
std::string takeAll(AheadQueue& queue) {
  std::string taken;
  while (const auto place = queue.take()) {
    taken += (*place)->work.path + ((*place)->work.names.empty() ? " " : "* ");
    queue.settle(*place, {}, 0);
  }
  return taken;
}

double secondsOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

TEST(AheadQueue, GivesWorkInTheOrderOfTheWalk) {
  AheadQueue queue(100);
  queue.enter({1, 2}, "top");
  const auto top = *queue.take();
  queue.settle(top, {{{1, 2}, "top", 0, {"name"}}, listing(4, "last"), listing(3, "first")}, 1);
  EXPECT_EQ((*queue.take())->work.names.size(), 1U);  // work that was taken is not offered again
  const auto last = *queue.take();
  EXPECT_EQ(last->work.path, "last");
  EXPECT_EQ((*queue.take())->work.path, "first");
  // Work that a helper finds gets the place of the work in which it was found, in front of all
  // later work.
  queue.settle(last, {listing(5, "last/in")}, 0);
  queue.offer({listing(5, "known"), listing(6, "offered")});
  queue.offerNames({"name"}, 1);
  EXPECT_EQ(takeAll(queue), "offered last/in .* ");
}

TEST(AheadQueue, ForgetsWhatTheWalkHasPassedAndWaitsWhereItIsFarBehind) {
  AheadQueue queue(100);
  queue.enter({1, 2}, "top");
  const auto top = *queue.take();
  queue.settle(top, {{{1, 2}, "top", 9, {"name"}}, listing(3, "in"), listing(4, "next")}, 100);
  EXPECT_FALSE(queue.hasWork());
  queue.passed(64);
  EXPECT_EQ(queue.ahead(), 36U);
  queue.enter({1, 3}, "in");
  EXPECT_EQ(queue.ahead(), 0U);
  EXPECT_EQ(takeAll(queue), "in next ");
  // The queue is full of a directory that the walk does not enter.
  queue.offer({listing(9, "elsewhere"), listing(10, "there")});
  queue.settle(*queue.take(), {}, 100);
  EXPECT_FALSE(queue.hasWork());
  EXPECT_FALSE(queue.enter({1, 12}, "new"));
  // Findings from a directory that was left meanwhile are dropped, and so are names of lines that
  // an undo has passed.
  const auto left = *queue.take();
  EXPECT_EQ(left->work.path, "new");
  queue.enter({1, 13}, "");
  queue.settle(left, {listing(14, "late")}, 0);
  queue.passed(16);
  queue.offerNames({"passed"}, 16);
  queue.offerNames({"next"}, 17);
  EXPECT_EQ(takeAll(queue), " .* ");
}

TEST(AheadQueue, IsBounded) {
  AheadQueue queue(100);
  queue.enter({1, 2}, "top");
  std::vector<AheadWork> many;
  for (uint64_t inode = 3; inode < 10'000; ++inode)
    many.push_back(listing(inode, std::string(4000, 'x')));
  queue.settle(*queue.take(), std::move(many), 0);
  EXPECT_LE(queue.length(), 1100U);
}

TEST(WaitWatch, SeesADiskOrAServerThatIsWaitedFor) {
  const struct {
    Spent spent;
    bool isNetwork = false;
    bool waits = false;
  } rows[] = {{{100, 10, 8, 3}, false, true},
              {{100, 70, 8, 3}, false, true},
              {{100, 80, 8, 3}, false, false},
              {{100, 10, 0, 99}, false, false},  // waits for a tracer or another process
              {{100, 10, 0, 99}, true, true},
              {{100, 10, 0, 0}, true, false}};
  for (const auto& row : rows)
    EXPECT_EQ(waitsForDisk(row.spent, row.isNetwork), row.waits) << row.spent.blocks;
}

class ReadAheadOn : public SandboxTest {
 protected:
  // Runs helpers over `folder`. Returns the seconds that their end takes.
  static double lookInto(
      const std::string& folder,
      const std::function<bool(const std::string&)>& isLeftOut,
      const std::function<void()>& before = [] {},
      const std::vector<ReadAhead::Directory>& offered = {}) {
    struct stat top = {};
    EXPECT_EQ(stat(folder.c_str(), &top), 0);
    ReadAhead ahead;
    ahead.begin(UniqueFd(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), top.st_dev,
                isLeftOut);
    before();
    for (int i = 0; i < 3; ++i)
      EXPECT_TRUE(ahead.addHelper());
    ahead.enter({idOf(top), "."});
    ahead.offer(offered);
    usleep(200'000);
    return secondsOf([&] { ahead.end(); });
  }
};

// Helpers ask about an entry that is left out, or leads to another inode, and list nothing in it.
TEST_F(ReadAheadOn, ListsWhatItMay) {
  plant("/trees/t", {"d 0:0 in", "d 0:0 in/sub", "d 0:0 in/sub/deep", "d 0:0 out",
                     "d 0:0 out/hidden", "d 0:0 out/hidden/x", "l 0:0 link out"});
  struct stat hidden = {};
  ASSERT_EQ(stat("/trees/t/out/hidden", &hidden), 0);
  const DevInode other = {hidden.st_dev, 1};
  std::mutex mutex;
  std::set<std::string> asked;
  std::ptrdiff_t descriptors = 0;  // that a helper has open
  sigset_t blocked;
  sigemptyset(&blocked);
  EXPECT_LT(lookInto(
                "/trees/t",
                [&](const std::string& path) {
                  const std::scoped_lock lock(mutex);
                  asked.insert(path);
                  descriptors = std::distance(fs::directory_iterator("/proc/thread-self/fd"), {});
                  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);  // the mask of a helper
                  return path == "out";
                },
                [] {}, {{idOf(hidden), "link/hidden"}, {other, "out/hidden"}}),
            0.9);
  EXPECT_EQ(asked, (std::set<std::string>{".", "in", "in/sub", "in/sub/deep", "out", "link/hidden",
                                          "out/hidden"}));
  EXPECT_EQ(descriptors, 2);  // the base folder, and the one of the count
  EXPECT_TRUE(sigismember(&blocked, SIGTERM) == 1 && sigismember(&blocked, SIGCHLD) == 1);
}

TEST_F(ReadAheadOn, AHelperThatHangsIsLeftBehind) {
  const auto kNothing = [](const std::string&) { return false; };
  UsersMount users;
  mkdir("/trees/users", 0755);
  ASSERT_TRUE(users.mountAt("/trees/users", 0)) << "no FUSE";
  EXPECT_LT(lookInto("/trees/users", kNothing), 0.9);
  const double seconds = lookInto("/trees/users", kNothing, [&] { users.freeze(); });
  EXPECT_GT(seconds, 0.9);
  EXPECT_LT(seconds, 3);
}
