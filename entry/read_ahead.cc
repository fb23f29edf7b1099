#include "entry/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <malloc.h>
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

// The data that helpers and walk share. `mutex` guards the queue and `running`. The last three
// fields are set before the first helper starts and do not change.
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

constexpr size_t kNamesAtOnce = 32;  // enough names to make opening their directory worth while
constexpr size_t kListedAtOnce = 16384;
constexpr size_t kShortListing = 4096;           // a shorter listing is the last of its directory
constexpr size_t kMostFound = size_t{64} << 10;  // bytes of new work from one listing
constexpr std::chrono::seconds kLongestEnd{1};
constexpr size_t kStack = size_t{192} << 10;

// A descriptor in a helper's own table. The same number may be another file in the table of the
// program. Sanitizers know one table only, so the system call is made directly.
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

// Opens a name below `directory`, never through a symbolic link. With `staysOnMount` it crosses no
// mount point either: a user may have mounted the file system behind one, and could make the call
// hang.
HelperFd openBelow(int directory, const char* name, uint64_t flags, bool staysOnMount) {
  open_how how = {};
  how.flags = flags | O_CLOEXEC | O_NOFOLLOW;
  how.resolve =
      RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | (staysOnMount ? uint64_t{RESOLVE_NO_XDEV} : 0);
  return HelperFd(static_cast<int>(syscall(SYS_openat2, directory, name, &how, sizeof how)));
}

// One helper thread. It takes work from the queue, does the work without the lock, and puts what it
// found at the same place.
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
  HelperFd pin(const AheadWork& work) const;
  Found list(int directory, const AheadWork& work);
  size_t look(int directory, const std::vector<std::string>& names);

  std::shared_ptr<ReadAhead::State> state;
  alignas(dirent64) std::array<char, kListedAtOnce> listed = {};
};

// Gives the helper a descriptor table of its own that holds the base alone. So a helper that hangs
// keeps no file of the program open, and the walk's calls are not slowed by a shared table.
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
    // The work was taken, so no other thread changes it.
    const AheadWork& work = (*place)->work;
    lock.unlock();
    Found found = perform(work);
    lock.lock();
    state->queue.settle(*place, std::move(found.work), found.looked);
  }
}

// Opens the directory of the work with O_PATH, which triggers no automount, unlike an open for
// reading. A mount point may be crossed only where the walk has crossed it. For a directory that
// the walk has entered, the last step may therefore cross one. For a directory found behind a
// mount, the way to its parent may, because the walk has been there, but the last step may not.
HelperFd Helper::pin(const AheadWork& work) const {
  if (work.id == DevInode{})
    return HelperFd(fcntl(state->base, F_DUPFD_CLOEXEC, 0));
  const bool isBehindMount = work.id.device != state->device;
  const size_t slash = work.path.rfind('/');
  const bool inTwoSteps = isBehindMount && !work.isEntered && slash != std::string::npos;
  const HelperFd above = inTwoSteps ? openBelow(state->base, work.path.substr(0, slash).c_str(),
                                                O_PATH | O_DIRECTORY, false)
                                    : HelperFd();
  if (inTwoSteps && !above)
    return HelperFd();
  HelperFd fd = openBelow(inTwoSteps ? above.get() : state->base,
                          work.path.c_str() + (inTwoSteps ? slash + 1 : 0), O_PATH,
                          !isBehindMount || !work.isEntered);
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0 || idOf(status) != work.id)
    return HelperFd();
  return fd;
}

Helper::Found Helper::perform(const AheadWork& work) {
  Found found;
  const bool isListing = work.names.empty();
  if (isListing && state->isLeftOut(work.path))
    return found;
  const HelperFd directory = pin(work);
  if (!directory)
    return found;
  if (!isListing) {
    found.looked = look(directory.get(), work.names);
    return found;
  }
  const HelperFd readable =
      openBelow(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_NOATIME, true);
  return readable ? list(readable.get(), work) : found;
}

// Reads one piece of the directory. The first names are looked at here. The other names, the rest
// of the listing and the subdirectories become new work, so that other helpers can share it.
Helper::Found Helper::list(int directory, const AheadWork& work) {
  Found found;
  if (work.offset != 0 && lseek(directory, work.offset, SEEK_SET) < 0)
    return found;
  const ssize_t filled = getdents64(directory, listed.data(), listed.size());
  std::vector<std::string> first;
  std::vector<AheadWork> directories;
  int64_t offset = 0;
  size_t bytes = 0;
  ssize_t at = 0;
  while (at < filled && bytes < kMostFound) {
    const auto* entry = reinterpret_cast<const dirent64*>(listed.data() + at);
    at += entry->d_reclen;
    offset = entry->d_off;
    const std::string name = entry->d_name;
    if (name == "." || name == "..")
      continue;
    if (first.size() < kNamesAtOnce)
      first.push_back(name);
    else if (found.work.empty() || found.work.back().names.size() == kNamesAtOnce)
      found.work.push_back({work.id, work.path, 0, {name}, work.isEntered});
    else
      found.work.back().names.push_back(name);
    bytes += sizeof(std::string) + name.size() + work.path.size() / kNamesAtOnce;
    std::string path = work.path == "." ? name : work.path + "/" + name;
    if (entry->d_type == DT_DIR && path.size() < PATH_MAX) {
      bytes += sizeof(AheadWork) + path.size();
      directories.push_back({{work.id.device, entry->d_ino}, std::move(path), 0, {}});
    }
  }
  if (filled <= 0)
    return found;
  if (at < filled || static_cast<size_t>(filled) >= kShortListing)
    found.work.push_back({work.id, work.path, offset, {}, work.isEntered});
  std::move(directories.rbegin(), directories.rend(), std::back_inserter(found.work));
  found.looked = look(directory, first);
  return found;
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
  } catch (...) {  // out of memory: the walk goes on with fewer helpers
  }
  const std::scoped_lock lock((*state)->mutex);
  --(*state)->running;
  (*state)->ended.notify_all();
  return nullptr;
}

// All signals are blocked in the helper: they are for the main thread.
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
  // The helpers share one arena of malloc(): memory that one helper allocates another one frees,
  // and with an arena for each helper the free memory would pile up in all of them.
  mallopt(M_ARENA_MAX, 2);
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

bool ReadAhead::enter(const Directory& directory) {
  const std::scoped_lock lock(state->mutex);
  const bool wasKnown = state->queue.enter(directory.id, directory.path);
  state->wake();
  return wasKnown;
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

void ReadAhead::offerNames(std::vector<std::string> names, size_t line) {
  const std::scoped_lock lock(state->mutex);
  state->queue.offerNames(std::move(names), line);
  state->wake();
}
