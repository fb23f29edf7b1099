#include "entry/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <utility>

#include "entry/ahead_queue.h"

#include <linux/openat2.h>

// What helpers and walk share. `mutex` guards the queue and `running`; the base is set once.
struct ReadAhead::State {
  std::mutex mutex;
  std::condition_variable changed;
  AheadQueue queue{kWindow};
  std::atomic<bool> isEnding = false;
  std::condition_variable ended;
  size_t running = 0;  // helpers

  int base = -1;
  uint64_t device = 0;
  std::function<bool(const std::string&)> isLeftOut;

  void wake() {
    if (queue.hasWork())
      changed.notify_one();
  }
};

namespace {

constexpr size_t kNamesAtOnce = 32;  // as few as make the open of their directory cheap
constexpr size_t kListedAtOnce = 16384;
constexpr size_t kShortListing = 4096;  // less is the end of a directory
constexpr std::chrono::seconds kLongestEnd{1};
constexpr size_t kStack = size_t{192} << 10;

// A descriptor of a helper's own table. Its number may be that of another file in the program's, so
// it is closed past the sanitizers, which know of one table only.
class HelperFd {
 public:
  explicit HelperFd(int owned = -1) : fd(owned) {}
  HelperFd(HelperFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  HelperFd& operator=(HelperFd&&) = delete;
  ~HelperFd() {
    if (fd >= 0)
      syscall(SYS_close, fd);
  }
  int get() const { return fd; }
  explicit operator bool() const { return fd >= 0; }

 private:
  int fd;
};

// Never through a link, out of the base or, if `staysOnMount`, over a mount; so no automounter is
// asked either, and no file system that a user has mounted.
HelperFd openBelow(int directory, const char* name, uint64_t flags, bool staysOnMount) {
  open_how how = {};
  how.flags = flags | O_CLOEXEC | O_NOFOLLOW;
  how.resolve =
      RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | (staysOnMount ? uint64_t{RESOLVE_NO_XDEV} : 0);
  return HelperFd(static_cast<int>(syscall(SYS_openat2, directory, name, &how, sizeof how)));
}

// One helper.
class Helper {
 public:
  explicit Helper(std::shared_ptr<ReadAhead::State> shared) : state(std::move(shared)) {}

  void serve();

 private:
  struct Found {
    std::vector<AheadWork> work;
    size_t looked = 0;
  };

  bool isolate() const;
  Found perform(const AheadWork& work);
  HelperFd open(const AheadWork& work) const;
  void list(int directory, const AheadWork& work, Found& found);
  size_t look(int directory, const std::vector<std::string>& names);

  std::shared_ptr<ReadAhead::State> state;
  alignas(dirent64) std::array<char, kListedAtOnce> listed = {};
};

// A table of descriptors of its own, with the base alone: not one file of the program is kept open
// by a helper that hangs, and none of the walk's calls has to share.
bool Helper::isolate() const {
  const unsigned base = static_cast<unsigned>(state->base);
  return close_range(base + 1, UINT_MAX, CLOSE_RANGE_UNSHARE) == 0 &&
         (base == 0 || close_range(0, base - 1, 0) == 0);
}

void Helper::serve() {
  if (!isolate())
    return;
  std::unique_lock lock(state->mutex);
  for (;;) {
    state->changed.wait(lock, [this] { return state->isEnding || state->queue.hasWork(); });
    if (state->isEnding)
      return;
    const auto place = state->queue.take();
    if (!place)
      continue;
    state->wake();
    // Only who has taken the work changes it.
    const AheadWork& work = (*place)->work;
    lock.unlock();
    Found found = perform(work);
    lock.lock();
    state->queue.settle(*place, std::move(found.work), found.looked);
  }
}

HelperFd Helper::open(const AheadWork& work) const {
  if (work.id == DevInode{})
    return HelperFd(fcntl(state->base, F_DUPFD_CLOEXEC, 0));
  // The walk itself leads to what lies behind a mount.
  HelperFd fd =
      openBelow(state->base, work.path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_NOATIME,
                work.id.device == state->device);
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0 || idOf(status) != work.id)
    return HelperFd();
  return fd;
}

Helper::Found Helper::perform(const AheadWork& work) {
  Found found;
  const HelperFd directory = open(work);
  if (!directory)
    return found;
  if (work.names.empty())
    list(directory.get(), work, found);
  else
    found.looked = look(directory.get(), work.names);
  return found;
}

// Some of the directory: its first names are looked at here, the others, the rest of the listing
// and the directories that came to light are work to be done.
void Helper::list(int directory, const AheadWork& work, Found& found) {
  if (work.offset != 0 && lseek(directory, work.offset, SEEK_SET) < 0)
    return;
  const ssize_t filled = getdents64(directory, listed.data(), listed.size());
  std::vector<std::string> first;
  std::vector<AheadWork> directories;
  int64_t offset = 0;
  for (ssize_t at = 0; at < filled;) {
    const auto* entry = reinterpret_cast<const dirent64*>(listed.data() + at);
    at += entry->d_reclen;
    offset = entry->d_off;
    const std::string name = entry->d_name;
    if (name == "." || name == "..")
      continue;
    if (first.size() < kNamesAtOnce)
      first.push_back(name);
    else if (found.work.empty() || found.work.back().names.size() == kNamesAtOnce)
      found.work.push_back({work.id, work.path, 0, {name}});
    else
      found.work.back().names.push_back(name);
    std::string path = work.path == "." ? name : work.path + "/" + name;
    if (entry->d_type == DT_DIR && path.size() < PATH_MAX && !state->isLeftOut(path))
      directories.push_back({{work.id.device, entry->d_ino}, std::move(path), 0, {}});
  }
  if (filled <= 0)
    return;
  if (static_cast<size_t>(filled) >= kShortListing)
    found.work.push_back({work.id, work.path, offset, {}});
  std::move(directories.rbegin(), directories.rend(), std::back_inserter(found.work));
  found.looked = look(directory, first);
}

size_t Helper::look(int directory, const std::vector<std::string>& names) {
  size_t looked = 0;
  for (const std::string& name : names) {
    if (state->isEnding)
      break;
    openBelow(directory, name.c_str(), O_PATH, true);
    ++looked;
  }
  return looked;
}

void* runHelper(void* argument) {
  const std::unique_ptr<std::shared_ptr<ReadAhead::State>> state(
      static_cast<std::shared_ptr<ReadAhead::State>*>(argument));
  try {
    Helper(*state).serve();
  } catch (...) {  // no memory: the walk does without this one
  }
  const std::scoped_lock lock((*state)->mutex);
  --(*state)->running;
  (*state)->ended.notify_all();
  return nullptr;
}

// All signals are the program's.
bool startThread(pthread_t& thread, void* argument) {
  sigset_t all;
  sigfillset(&all);
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0)
    return false;
  const bool isStarted = pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                         pthread_attr_setstacksize(&attributes, kStack) == 0 &&
                         pthread_create(&thread, &attributes, runHelper, argument) == 0;
  pthread_attr_destroy(&attributes);
  return isStarted;
}

}  // namespace

void ReadAhead::begin(UniqueFd directory,
                      uint64_t device,
                      std::function<bool(const std::string&)> isLeftOut) {
  state = std::make_shared<State>();
  base = std::move(directory);
  state->base = base.get();
  state->device = device;
  state->isLeftOut = std::move(isLeftOut);
}

bool ReadAhead::addHelper() {
  if (!state || threads.size() >= kMostHelpers)
    return false;
  auto argument = std::make_unique<std::shared_ptr<State>>(state);
  pthread_t thread = {};
  {
    const std::scoped_lock lock(state->mutex);
    ++state->running;
  }
  if (!startThread(thread, argument.get())) {
    const std::scoped_lock lock(state->mutex);
    --state->running;
    return false;
  }
  argument.release();  // NOLINT(bugprone-unused-return-value): the helper owns it
  threads.push_back(thread);
  return true;
}

void ReadAhead::end() {
  if (!state)
    return;
  {
    const std::scoped_lock lock(state->mutex);
    state->isEnding = true;
  }
  state->changed.notify_all();
  bool haveEnded = false;
  {
    std::unique_lock lock(state->mutex);
    haveEnded = state->ended.wait_for(lock, kLongestEnd, [this] { return state->running == 0; });
  }
  for (const pthread_t thread : threads) {
    if (haveEnded)
      pthread_join(thread, nullptr);
    else if (pthread_tryjoin_np(thread, nullptr) != 0)
      pthread_detach(thread);
  }
  threads.clear();
  state.reset();
  base.reset();
}

void ReadAhead::enter(const Directory& directory) {
  const std::scoped_lock lock(state->mutex);
  state->queue.enter(directory.id, directory.path);
  state->wake();
}

void ReadAhead::passed(size_t entries) {
  const std::scoped_lock lock(state->mutex);
  state->queue.passed(entries);
  state->wake();
}

void ReadAhead::offer(std::vector<Directory> next) {
  std::vector<AheadWork> work;
  work.reserve(next.size());
  for (Directory& directory : next)
    work.push_back({directory.id, std::move(directory.path), 0, {}});
  const std::scoped_lock lock(state->mutex);
  state->queue.offer(std::move(work));
  state->wake();
}

void ReadAhead::offerNames(std::vector<std::string> names) {
  const std::scoped_lock lock(state->mutex);
  state->queue.offerNames(std::move(names));
  state->wake();
}
