// The directories that the walk has entered, and those that it never enters. Program-wide, filled
// during one run.
#pragma once

#include <list>
#include <set>
#include <string>
#include <string_view>

#include "entry/file_ids.h"

// Every directory for which the walk decided to enter it, top directories included.
extern std::set<DevInode> visitedDirs;

// With idshift.strict a run may walk its trees several times: a later pass finds entries that were
// created or moved behind the walk before. It passes over known and failed entries without a
// message.
struct WalkPass {
  bool isLater = false;
  std::set<DevInode> failed;  // entries whose change failed in this run
};
extern WalkPass walkPass;

// The exclude list: exact paths of directories, each with a trailing slash.
extern std::list<std::string> excludeList;

// True when `path` is in the exclude list; a missing slash at its end is added. Paths below an
// excluded one are not: the walk never gets there.
bool isExcluded(std::string_view path);

// The same for a copy of the list.
bool isIn(const std::list<std::string>& exclusions, std::string_view path);
