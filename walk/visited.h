// What the walk has entered, and what it never enters. Program-wide, filled during one run.
#pragma once

#include <list>
#include <set>
#include <string>

#include "privatelog/log_record.h"

// Every directory that was decided to be entered, top directories included.
extern std::set<DevInode> visitedDirs;

// Exact directory paths, each with a trailing slash.
extern std::list<std::string> excludeList;
