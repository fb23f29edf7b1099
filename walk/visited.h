// What the walk has entered, and what it never enters. Program-wide, filled during one run.
#pragma once

#include <list>
#include <set>
#include <string>
#include <string_view>

#include "entry/file_ids.h"

// Every directory that was decided to be entered, top directories included.
extern std::set<DevInode> visitedDirs;

// The walks of a run. A later pass goes over the same trees again, for what came behind the one
// before: what is known or failed is passed over without a word.
struct WalkPass {
  bool isLater = false;
  std::set<DevInode> failed;  // entries whose change failed in this run
};
extern WalkPass walkPass;

// Exact directory paths, each with a trailing slash.
extern std::list<std::string> excludeList;

// True when `path`, a slash added if it has none at its end, is one of the exclude list. Not a test
// for what lies below: that is left out because the walk never gets there.
bool isExcluded(std::string_view path);

// The same for a copy of the list.
bool isIn(const std::list<std::string>& exclusions, std::string_view path);
