#include "walk/visited.h"

#include <algorithm>

std::set<DevInode> visitedDirs;
WalkPass walkPass;
std::list<std::string> excludeList;

bool isExcluded(std::string_view path) {
  return isIn(excludeList, path);
}

bool isIn(const std::list<std::string>& exclusions, std::string_view path) {
  const bool addSlash = !path.empty() && path.back() != '/';
  return std::any_of(exclusions.begin(), exclusions.end(), [&](std::string_view excluded) {
    if (!addSlash)
      return excluded == path;
    return excluded.size() == path.size() + 1 && excluded.back() == '/' &&
           excluded.starts_with(path);
  });
}
