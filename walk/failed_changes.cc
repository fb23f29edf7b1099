#include "walk/failed_changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "entry/pinned_path.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/path_text.h"
#include "walk/mounts.h"
#include "walk/process_entry.h"
#include "walk/visited.h"

namespace {

// Whether `top`, or a directory on the way from `top` to `path`, is excluded.
bool isBelowExcluded(const std::string& top, const std::string& path) {
  for (size_t slash = top.size(); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (isExcluded(path.substr(0, slash)))
      return true;
  }
  return false;
}

class Retry {
 public:
  Retry(const std::string& topDirectory, const CommandOptions& commandOptions)
      : top(topDirectory), options(commandOptions), walk(walkContext(commandOptions, newOwners)) {}

  void tryAgain(const FailedEntry& failed);

 private:
  bool isMeant(const FailedEntry& failed, const EntryStatus& status) const;

  const std::string& top;
  const CommandOptions& options;
  NewOwners newOwners;
  WalkContext walk;
};

bool Retry::isMeant(const FailedEntry& failed, const EntryStatus& status) const {
  struct stat topStatus = {};
  const bool isOtherDevice =
      lstat(top.c_str(), &topStatus) != 0 || topStatus.st_dev != status.id.device;
  return status.owner == failed.record.oldIds && !newIdsOfEntry(status.owner) &&
         (options.follow || !failed.followed) && !(options.xdev && isOtherDevice) &&
         !isBelowExcluded(top, failed.path);
}

void Retry::tryAgain(const FailedEntry& failed) {
  PinnedPath way = pinPath(failed.path, failed.followed ? LastLink::Follow : LastLink::Keep,
                           failed.followed ? ForeignLinks::Follow : ForeignLinks::Refuse);
  if (!way.object || !isMeant(failed, way.status) || !way.directory ||
      fchdir(way.directory.get()) != 0)
    return;
  const std::string& path = failed.path;
  const char* name = baseNameView(path).data();
  if (!options.nfs && isOnRemote(name))
    return;
  EntryStatus status = way.status;
  PinnedEntry pinned;
  pinned.adopt(std::move(way.object), status);
  if (privateLog.isRecorded(failed, {status, path, name, failed.followed}))
    changeEntry({path, name, status, pinned}, walk, {.device = status.id.device, .mustPin = true},
                failed.followed, failed.vouched.line.newIds);
}

}  // namespace

void retryFailedChanges(const std::string& top, const CommandOptions& options) {
  const std::vector<FailedEntry> entries = privateLog.takeFailedBelow(top);
  if (entries.empty())
    return;
  const UniqueFd here(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  Retry retry(top, options);
  for (const FailedEntry& failed : entries) {
    if (interrupt::pending() == 0)
      retry.tryAgain(failed);
  }
  if (fchdir(here.get()) != 0)
    return;  // the directory was removed, so no relative name resolves any more
}
