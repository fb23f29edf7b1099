#include "walk/visited.h"

std::set<DevInode> visitedDirs;
std::list<std::string> excludeList;
