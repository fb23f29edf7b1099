#include "driver/top_dirs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "driver/exit_status.h"
#include "entry/file_ids.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/left_undone.h"
#include "services/path_text.h"
#include "services/progress.h"
#include "services/say.h"
#include "services/unique_fd.h"
#include "walk/failed_changes.h"
#include "walk/tree_walk.h"
#include "walk/visited.h"

static_assert(kWalkFailed == kExitWalkFailed);

namespace {

void makeAbsolute(std::string& path, const std::string& workingDir) {
  if (path.empty() || path.front() == '/')
    return;
  if (!workingDir.ends_with('/'))
    path.insert(0, "/");
  path.insert(0, workingDir);
}

// Required: a leading "/./" stays. Existing logs spell such paths so, and a file counts as already
// changed only under the same text.
void eraseInnerDots(std::string& path) {
  for (size_t at; (at = path.find("/./", 1)) != std::string::npos;)
    path.erase(at, 2);
  if (path.starts_with("./"))
    path.erase(0, 2);
}

// Required: "/." becomes the empty string, not "/". The walk refuses an empty name. So a script
// whose variable in front of "/." is unset gets an error, and does not convert the whole machine.
void eraseFinalDot(std::string& path) {
  if (path.ends_with("/."))
    path.erase(path.size() - 2);
}

void eraseInnerParents(std::string& path) {
  for (size_t at; (at = path.find("/../")) != std::string::npos;) {
    if (at == 0) {
      path.erase(0, 3);
      continue;
    }
    const size_t before = path.rfind('/', at - 1);
    if (before == std::string::npos)
      path.erase(0, at + 4);
    else
      path.erase(before + 1, at + 3 - before);
  }
}

void eraseFinalParent(std::string& path) {
  if (path.size() <= 3 || !path.ends_with("/.."))
    return;
  const size_t before = path.rfind('/', path.size() - 4);
  if (before == std::string::npos)
    path.clear();
  else
    path.erase(before == 0 ? 1 : before);
}

void eraseFinalSlashes(std::string& path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
}

std::optional<std::string> currentDirectory() {
  char buffer[4096] = {};
  if (getcwd(buffer, sizeof buffer) == nullptr)
    return std::nullopt;
  return buffer;
}

int walkTopDir(const orvs::LoggerPtr& logger,
               const std::string& path,
               const CommandOptions& options,
               WalkVisitor* visitor) {
  struct stat found = {};
  if (lstat(path.c_str(), &found) != 0) {
    TELL(Echo::Stderr, "Warning: skipping %s: %s", path.c_str(), strerror(errno));
    // Required: the walk is called all the same, so that a mistyped argument ends the run with the
    // walk's status and not with a success that converted nothing.
    return MapFilesInDir(path, 0, options, visitor);
  }
  if (!visitedDirs.insert(idOf(found)).second) {
    TELL(stderrIf(options.traceSkips), "Skipping Already Visited (Top) Dir: %s", path.c_str());
    return 0;
  }
  return MapFilesInDir(path, found.st_dev, options, visitor);
}

}  // namespace

std::string normalizeTopDir(std::string path, const std::optional<std::string>& workingDir) {
  if (workingDir)
    makeAbsolute(path, *workingDir);
  eraseInnerDots(path);
  eraseFinalDot(path);
  eraseInnerParents(path);
  eraseFinalParent(path);
  eraseFinalSlashes(path);
  return path;
}

int walkTopDirs(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                WalkVisitor* visitor) {
  const progress::Scope progressScope(options.verbose || options.debug);
  int failure = 0;
  for (int i = 0; i < options.directoryCount && interrupt::pending() == 0; ++i) {
    // Required: a relative argument counts from where the walk before it ended, the parent of that
    // top directory. A relative report file counts from where the last walk ended. Callers rely on
    // both.
    const std::string path = normalizeTopDir(options.directories[i], currentDirectory());
    if (options.commit && !options.pretend)
      retryFailedChanges(path, options);
    const int status = walkTopDir(logger, path, options, visitor);
    if (status != 0 && visitor == nullptr)
      return status;
    failure = failure != 0 ? failure : status;
  }
  return failure;
}

int walkUntilQuiet(const orvs::LoggerPtr& logger, const CommandOptions& options) {
  constexpr int kMostLaterWalks = 3;
  const UniqueFd start(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  int status = walkTopDirs(logger, options);
  for (int walk = 1; status == 0 && interrupt::pending() == 0 && !left_undone::any(); ++walk) {
    if (walk > kMostLaterWalks) {
      TELL(Echo::Stderr,
           "Error: files to convert keep appearing: stop the programs that create them.");
      left_undone::note();
      break;
    }
    const uint64_t before = privateLog.changeCount + privateLog.aclCount;
    walkPass.isLater = true;
    visitedDirs.clear();
    if (fchdir(start.get()) != 0)
      return kWalkFailed;
    status = walkTopDirs(logger, options);
    if (privateLog.changeCount + privateLog.aclCount == before)
      break;
  }
  walkPass.isLater = false;
  return status;
}

// Each relative name counts from the parent of the directory before it, as in a walk.
void retryInTopDirs(const CommandOptions& options) {
  std::optional<std::string> workingDir = currentDirectory();
  for (int i = 0; i < options.directoryCount && interrupt::pending() == 0; ++i) {
    std::string path = normalizeTopDir(options.directories[i], workingDir);
    retryFailedChanges(path, options);
    trimLastComponent(path);
    workingDir = path;
  }
}
