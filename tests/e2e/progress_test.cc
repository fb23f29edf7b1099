// The progress line. On a terminal it is erased in the end; elsewhere SIGUSR1 asks for it.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "services/progress_line.h"
#include "services/unique_fd.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

namespace {

constexpr size_t kWidth = 60;

// A new terminal, and the bytes that were written to it.
class Terminal {
 public:
  Terminal() {
    orDie(mkdir("/tmp/pts", 0755) == 0 &&
              mount("devpts", "/tmp/pts", "devpts", 0, "newinstance,ptmxmode=0666") == 0,
          "devpts");
    master.reset(open("/tmp/pts/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    int locked = 0;
    const winsize size = {.ws_row = 24, .ws_col = kWidth, .ws_xpixel = 0, .ws_ypixel = 0};
    orDie(ioctl(master.get(), TIOCSPTLCK, &locked) == 0 &&
              ioctl(master.get(), TIOCSWINSZ, &size) == 0,
          "terminal");
  }
  ~Terminal() { umount2("/tmp/pts", MNT_DETACH); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::string takeBytes() const {
    std::string bytes;
    char buffer[4096];
    for (ssize_t count; (count = read(master.get(), buffer, sizeof buffer)) > 0;)
      bytes.append(buffer, static_cast<size_t>(count));
    return bytes;
  }

 private:
  UniqueFd master;
};

// The rows that a screen shows after `bytes`, without blanks at their ends.
std::string screenAfter(const std::string& bytes) {
  std::vector<std::string> rows = {""};
  size_t column = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '\r') {
      column = 0;
    } else if (bytes[i] == '\n') {
      rows.emplace_back();
    } else if (bytes.compare(i, 3, "\x1b[K") == 0) {
      rows.back().resize(std::min(rows.back().size(), column));
      i += 2;
    } else {
      if (column == kWidth) {
        rows.emplace_back();
        column = 0;
      }
      rows.back().resize(std::max(rows.back().size(), column + 1), ' ');
      rows.back()[column++] = bytes[i];
    }
  }
  std::string screen;
  for (std::string& row : rows) {
    row.resize(row.find_last_not_of(' ') + 1);
    screen += row + "\n";
  }
  return screen;
}

class Progress : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    plant("/trees/t",
          {"d 0:0 a", "- 0:0 a/slow", "d 0:0 " + deep, "- 500:100 " + deep + "/bad",
           "d 0:0 " + deep + "/c", "- 0:0 " + deep + "/c/late", "d 0:0 " + deep + "/c/d"});
  }

  // Runs a commit that takes long before `deep` and before the last folder, and cannot look at
  // "bad" between them. Sends `signal` both times, unless it is 0.
  TracedResult run(const std::string& options, const std::string& redirections, int signal = 0) {
    std::set<std::string> slept;
    return runTraced(
        {"sh", "-c",
         "exec " + redirections + "; exec setsid -c " + binaryPath("idshift") + " " + options},
        [=](const SystemCall& call) mutable {
          const std::string name = call.number == __NR_statx ? call.text(1) : "";
          if (name == "bad")
            return CallVerdict{CallVerdict::kFail, EIO};
          if ((name == "slow" || name == "late") && slept.insert(name).second) {
            usleep(name == "slow" ? 2'100'000 : 600'000);
            if (signal != 0)
              kill(call.pid, signal);
          }
          return CallVerdict{};
        });
  }

  const std::string deep = "a/" + std::string(70, 'b');
  const std::string warning = "Warning: skipping /trees/t/" + deep + "/bad: Input/output error\n";
};

constexpr const char* kOnTerminal = "<>/tmp/pts/0 2>&0; export TERM=vt100";

}  // namespace

TEST_F(Progress, OnATerminalTheLineComesAndGoes) {
  const Terminal terminal;
  EXPECT_EQ(run("-c /trees/t", kOnTerminal).status, 0);
  const std::string bytes = terminal.takeBytes();
  EXPECT_TRUE(contains(bytes, "\r\x1b[K3 entries seen, 0 changed, 1 a second: ...bbbbbbbbb"))
      << bytes;
  EXPECT_EQ(countOf(bytes, " entries seen, "), 2U) << bytes;
  std::string wrapped = warning;
  for (size_t at = kWidth; at < wrapped.size() - 1; at += kWidth + 1)
    wrapped.insert(at, "\n");
  EXPECT_EQ(screenAfter(bytes), wrapped + "\n");

  // A survey prints its table last, behind every message.
  run("--survey /trees/t", kOnTerminal);
  EXPECT_EQ(screenAfter(terminal.takeBytes()), wrapped + "\n");

  run("-V /trees/t", kOnTerminal);
  EXPECT_FALSE(contains(terminal.takeBytes(), "entries seen"));
  addSetting("idshift.progress = never");
  run("-c /trees/t", kOnTerminal);
  EXPECT_FALSE(contains(terminal.takeBytes(), "entries seen"));
}

TEST_F(Progress, ElsewhereASignalAsksForTheLine) {
  const Terminal terminal;
  const std::string redirections = "</tmp/pts/0; export TERM=vt100";
  EXPECT_EQ(run("-c /trees/t", redirections).err, warning);
  const RunResult asked = run("-c -R /trees/t", redirections, SIGUSR1);
  EXPECT_EQ(asked.status, 0) << asked;
  EXPECT_EQ(asked.err, "3 entries seen, 0 changed, 1 a second: /trees/t/" + deep + "\n" + warning +
                           "7 entries seen, 0 changed, 2 a second: /trees/t/" + deep + "/c/d\n");
  EXPECT_EQ(terminal.takeBytes(), "");
}

TEST(ProgressText, FitsItsRow) {
  const struct {
    std::string directory;
    size_t columns;
    const char* end;  // of the text, behind the counts
  } rows[] = {
      {"/home/ann", 60, "/home/ann"},
      {"/home/ann", 54, "/home/ann"},
      {"/home/ann", 53, "...e/ann"},
      {"/h/\xc3\xa4\xe4\xbd\xa0", 52, "/h/\xc3\xa4\xe4\xbd\xa0"},  // beyond ASCII: two columns each
      {"/h/\xc3\xa4\xe4\xbd\xa0", 51, "...\xe4\xbd\xa0"},
      {"/\n\xff\x1b\xc2\x9bz", 60, "/????z"},
      {"/home/ann", 45, ""},
  };
  const std::string counts = "1000 entries seen, 20 changed, 500 a second: ";
  ASSERT_EQ(counts.size(), 45U);
  for (const auto& row : rows)
    EXPECT_EQ(progressText({1000, 20, 2}, row.directory, row.columns), counts + row.end)
        << row.columns;
  EXPECT_EQ(progressText({1000, 20, 2}, "/", 10), counts.substr(0, 10));
}
