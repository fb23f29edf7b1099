// The paths to read ahead are in the log, in front of the line that the undo deals with now. The
// undo marks lines as it goes and its scan cannot look ahead, so a second scan of the same log runs
// up to kMostAhead changes in front of it.
//
// The walk can promise that it has crossed a mount point before its helpers do. An undo cannot,
// because its lines lead anywhere. So all paths begin at the root of the mount on which the undo
// works now, helpers never leave that mount, and they are started anew when the undo has come to
// another one.

#include "privatelog/undo/ahead_of_undo.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <utility>
#include <vector>

#include "entry/file_ids.h"
#include "privatelog/log_header.h"
#include "privatelog/undo/undo_plan.h"

namespace {

constexpr uint64_t kMostAhead = 2048;  // lines of changes
constexpr int kLinesAtOnce = 16;
constexpr uint32_t kMostMoves = 1000;

struct MountRoot {
  UniqueFd directory;
  uint64_t device = 0;
  std::string path;
};

bool restoresFile(UndoStep step) {
  return step == UndoStep::Restore || step == UndoStep::RestoreIfDone;
}

bool isRoot(int fd, bool& isMount) {
  struct statx seen = {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_TYPE, &seen) != 0)
    return false;
  isMount = (seen.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return true;
}

// Climbs from the current directory, whose path is `path`, to the root of its mount. Nothing when
// `path` leads through a link, or the mount is FUSE's or an automounter's.
std::optional<MountRoot> mountOf(std::string path) {
  MountRoot root = {UniqueFd(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)), 0, {}};
  struct statfs found = {};
  if (!root.directory || fstatfs(root.directory.get(), &found) != 0 ||
      found.f_type == FUSE_SUPER_MAGIC || found.f_type == AUTOFS_SUPER_MAGIC)
    return std::nullopt;
  for (bool isMount = false; isRoot(root.directory.get(), isMount);) {
    struct stat above = {};
    struct stat byPath = {};
    const char* place = path.empty() ? "/" : path.c_str();
    if (fstat(root.directory.get(), &above) != 0 || stat(place, &byPath) != 0 ||
        idOf(above) != idOf(byPath))
      return std::nullopt;
    if (isMount || path.empty()) {
      root.device = above.st_dev;
      root.path = path + '/';
      return root;
    }
    root.directory.reset(openat(root.directory.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    path.resize(path.rfind('/'));
  }
  return std::nullopt;
}

}  // namespace

AheadOfUndo::AheadOfUndo(bool hardened) : isHardened(hardened), rule(helperRuleOfSettings()) {}

void AheadOfUndo::passed(const std::string& directory, uint64_t offset) {
  ++lines;
  if (isAtEnd || (!rule.isAuto && rule.helpers == 0))
    return;
  const bool isTime = lines % WaitWatch::kBetween == 0;
  const bool needsHelper = rule.isAuto && isTime && helpers.helpers() < WaitWatch::kMostHelpers &&
                           waits.look(helpers.hasBegun());
  if (!helpers.hasBegun() && (needsHelper || !rule.isAuto) && !begin(directory, offset))
    rule = {false, 0};
  else if (needsHelper && helpers.helpers() > 0)
    helpers.addHelper();
  if (!helpers.hasBegun())
    return;
  if (isTime)
    follow(directory);
  if (handedOut < lines + kMostAhead)
    handOut();
}

// `offset` is that of the line that the undo dealt with last.
bool AheadOfUndo::begin(const std::string& directory, uint64_t offset) {
  scan = std::make_unique<LogScan>();
  std::string domain;
  if (scan->open(isHardened) != LogScan::Opened::Yes || !getHeader(scan->text(), domain))
    return false;
  while (const ScannedLine* line = scan->next()) {
    if (line->offset >= offset)
      break;
  }
  handedOut = lines;
  return beginAt(directory, rule.isAuto ? 1 : rule.helpers);
}

bool AheadOfUndo::beginAt(const std::string& directory, size_t count) {
  std::optional<MountRoot> root = directory.starts_with('/') ? mountOf(directory) : std::nullopt;
  if (!root)
    return false;
  helpers.end();
  mount = root->path;
  device = root->device;
  begun = told = lines;
  helpers.begin(std::move(root->directory), root->device, [](const std::string&) { return false; });
  for (size_t i = 0; i < count && helpers.addHelper(); ++i) {
  }
  return true;
}

// Lines that were handed out for the former mount are not handed out again.
void AheadOfUndo::follow(const std::string& directory) {
  helpers.passed(lines - told);
  told = lines;
  struct stat here = {};
  if (stat(".", &here) != 0 || here.st_dev == device || moves == kMostMoves)
    return;
  ++moves;
  beginAt(directory, helpers.helpers());
}

// A log has as many lines of further names as it likes. The undo does not stop at them, so they are
// not counted: the scan would soon be behind the undo.
void AheadOfUndo::handOut() {
  std::vector<std::string> names;
  for (int i = 0; i < kLinesAtOnce && !isAtEnd; ++i) {
    const ScannedLine* line = scan->next();
    isAtEnd = line == nullptr;
    if (isAtEnd)
      break;
    if (!restoresFile(undoStep(line->type)))
      continue;
    ++handedOut;
    const std::string_view path = line->record.path;
    if (path.size() > mount.size() && path.starts_with(mount) && path.size() < PATH_MAX)
      names.emplace_back(path.substr(mount.size()));
  }
  if (!names.empty())
    helpers.offerNames(std::move(names), handedOut - begun);
}
