#include "zonagent/trusted_path.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <deque>
#include <filesystem>
#include <system_error>

namespace zonagent {
namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;

// With an access list the group's bits are the mask, the most that any user or group in the list
// may do.
bool hasAccessList(const std::string& path) {
  return lgetxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

bool othersMayWrite(const std::string& path, const struct stat& status) {
  const bool byGroup = (status.st_mode & S_IWGRP) != 0;
  return status.st_uid != 0 || (status.st_mode & S_IWOTH) != 0 ||
         (byGroup && (status.st_gid != 0 || hasAccessList(path)));
}

// Whether a directory that others may write to protects this entry: sticky, and both are root's.
bool keepsEntry(const struct stat& directory, const struct stat* entry) {
  return directory.st_uid == 0 && (directory.st_mode & S_ISVTX) != 0 && entry && entry->st_uid == 0;
}

}  // namespace

// Walks along the path by hand. `ahead` holds the names still to come; a link puts the names of its
// target in front of them.
std::string openToOthers(const std::string& path) {
  std::error_code error;
  const fs::path whole = fs::absolute(path, error);
  std::deque<std::string> ahead;
  const auto prepend = [&ahead](const fs::path& more) {
    const fs::path relative = more.relative_path();
    ahead.insert(ahead.begin(), relative.begin(), relative.end());
  };
  prepend(whole);
  fs::path at = "/";  // where the walk stands; contains no links
  struct stat here = {};
  if (stat("/", &here) != 0)
    return "/";
  for (int links = 0; !ahead.empty();) {
    const std::string name = ahead.front();
    ahead.pop_front();
    if (name.empty() || name == ".")
      continue;
    const fs::path next = name == ".." ? at.parent_path() : at / name;
    struct stat found = {};
    const bool there = lstat(next.c_str(), &found) == 0;
    if (othersMayWrite(at, here) && !keepsEntry(here, there ? &found : nullptr))
      return at;
    if (!there)
      return "";
    if (!S_ISLNK(found.st_mode)) {
      at = next;
      here = found;
      continue;
    }
    const fs::path target = fs::read_symlink(next, error);
    if (error || ++links > kMostLinks)
      return next;
    prepend(target);
    if (target.is_absolute()) {
      at = "/";
      if (stat("/", &here) != 0)
        return at;
    }
  }
  return othersMayWrite(at, here) ? at.string() : "";
}

}  // namespace zonagent
