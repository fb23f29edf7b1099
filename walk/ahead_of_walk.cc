#include "walk/ahead_of_walk.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <utility>

#include "services/path_text.h"
#include "walk/visited.h"

namespace {

constexpr uint32_t kStrangersBetween = 64;  // unknown directories between two full offers

bool isWelcomeHere() {
  struct statfs found = {};
  return statfs(".", &found) == 0 && found.f_type != FUSE_SUPER_MAGIC &&
         found.f_type != AUTOFS_SUPER_MAGIC;
}

std::string withSlash(const std::string& path) {
  return path.ends_with('/') ? path : path + '/';
}

}  // namespace

AheadOfWalk::AheadOfWalk(const std::string& top)
    : topPath(withSlash(top)), rule(helperRuleOfSettings()) {}

// A helper that hangs may outlive the exclude list, so the helpers have a copy.
bool AheadOfWalk::begin(int parent, DevInode top) {
  const std::string place = topPath.substr(0, topPath.size() - 1);
  const char* name = place.empty() ? "/" : baseNameView(place).data();
  UniqueFd directory(openat(parent, name, O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status = {};
  if (!directory || fstat(directory.get(), &status) != 0 || idOf(status) != top) {
    rule = {false, 0};
    return false;
  }
  helpers.begin(std::move(directory), top.device,
                [excluded = excludeList, path = topPath](const std::string& below) {
                  return isIn(excluded, path + below);
                });
  const size_t count = rule.isAuto ? 1 : rule.helpers;
  for (size_t i = 0; i < count && helpers.addHelper(); ++i) {
  }
  return true;
}

bool AheadOfWalk::enter(const std::string& path, DevInode id) {
  if (id.device != currentDevice) {
    currentDevice = id.device;
    isWelcome = isWelcomeHere();
  }
  const bool isStranger =
      isWelcome && path.size() < PATH_MAX && !helpers.enter({id, relative(path)});
  return isStranger && strangers++ % kStrangersBetween == 0;
}

void AheadOfWalk::offer(Directories next) {
  for (ReadAhead::Directory& directory : next)
    directory.path = relative(directory.path);
  if (!next.empty())
    helpers.offer(std::move(next));
}

void AheadOfWalk::tellPassed() {
  if (isActive())
    helpers.passed(WaitWatch::kBetween);
}

bool AheadOfWalk::needsHelper() {
  if (!rule.isAuto || helpers.helpers() >= WaitWatch::kMostHelpers || !waits.look(isActive()))
    return false;
  if (!isActive())
    return true;
  helpers.addHelper();
  return false;
}

std::string AheadOfWalk::relative(const std::string& path) const {
  return path.size() > topPath.size() ? path.substr(topPath.size()) : ".";
}
