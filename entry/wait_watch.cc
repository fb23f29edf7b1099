#include "entry/wait_watch.h"

#include <linux/magic.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/vfs.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "services/properties.h"
#include "services/setting_keys.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kSlowEntry = 25'000;  // nanoseconds; a cached entry takes at most a third of it
constexpr int64_t kSlowWithHelpers = 8'000;  // with helpers a stretch mixes cached and cold entries
constexpr uint32_t kLongestPause = 1024;
constexpr uint32_t kLongestWithHelpers = 8;

int64_t nanosecondsOf(const timeval& time) {
  return time.tv_sec * kSecond + time.tv_usec * 1000;
}

int64_t now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * kSecond + time.tv_nsec;
}

Spent spentUntil(int64_t clock) {
  rusage thread = {};
  rusage process = {};
  if (getrusage(RUSAGE_THREAD, &thread) != 0 || getrusage(RUSAGE_SELF, &process) != 0)
    return {};
  return {clock, nanosecondsOf(thread.ru_utime) + nanosecondsOf(thread.ru_stime),
          process.ru_inblock, thread.ru_nvcsw};
}

// The kernel counts no blocks for reads from a network file system.
bool isOnNetwork() {
  constexpr std::array<uint64_t, 7> kTypes = {NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,  CIFS_SUPER_MAGIC,
                                              SMB2_SUPER_MAGIC, CEPH_SUPER_MAGIC, V9FS_MAGIC,
                                              AFS_FS_MAGIC};
  struct statfs found = {};
  return statfs(".", &found) == 0 && std::find(kTypes.begin(), kTypes.end(),
                                               static_cast<uint32_t>(found.f_type)) != kTypes.end();
}

}  // namespace

HelperRule helperRule(const std::string& setting) {
  if (setting.empty() || strcasecmp(setting.c_str(), "auto") == 0)
    return {};
  if (strcasecmp(setting.c_str(), "off") == 0)
    return {false, 0};
  return {false, std::strtoul(setting.c_str(), nullptr, 10)};
}

// The base of the helpers takes a descriptor of the program. Where few may be open, there are no
// helpers.
HelperRule helperRuleOfSettings() {
  constexpr rlim_t kFew = 256;
  rlimit descriptors = {};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur < kFew)
    return {false, 0};
  return helperRule(orvs::Props(false, false).getString(orvs::PN::IDSHIFT_READ_AHEAD));
}

bool waitsForDisk(const Spent& spent, bool isNetwork) {
  const bool hasWaited = spent.clock - spent.processor > spent.clock / 4;
  return hasWaited && (spent.blocks > 0 || (isNetwork && spent.sleeps > 0));
}

bool WaitWatch::look(bool hasHelpers) {
  const int64_t time = now();
  const int64_t took = time - last;
  last = time;
  const int64_t slow = hasHelpers ? kSlowWithHelpers : kSlowEntry;
  const bool wasSlow = std::exchange(isSlow, took >= int64_t{kBetween} * slow && took != time);
  // A single slow stretch may be the scheduler's: another process had the processor.
  if (!isSlow || !wasSlow || passedOver++ < pause)
    return false;
  passedOver = 0;
  return ask(time, hasHelpers ? kLongestWithHelpers : kLongestPause);
}

bool WaitWatch::ask(int64_t time, uint32_t longestPause) {
  const Spent sum = spentUntil(time);
  const Spent spent = {sum.clock - before.clock, sum.processor - before.processor,
                       sum.blocks - before.blocks, sum.sleeps - before.sleeps};
  const bool isFirst = before.clock == 0;
  before = sum;
  if (isFirst)
    return false;
  const bool waits = waitsForDisk(spent, spent.blocks == 0 && isOnNetwork());
  pause = waits ? 0 : std::min(2 * pause + 1, longestPause);
  return waits;
}
