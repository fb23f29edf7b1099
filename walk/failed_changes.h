// Tries changes again that failed in an earlier run. The walk alone would miss them: when their
// account has got its new ids since, the old ids are in no map any more.
//
// An entry is changed only if it is the recorded file (by file system, inode number and birth
// time), still has the recorded old ids, those ids are in no present map, and the walk of this run
// would reach it. Messages, records and the count are those of the walk.
#pragma once

#include <string>

#include "services/command_options.h"

// Tries the failed changes below `top`, a top directory of the walk. Each is tried once a run.
// Restores the current directory.
void retryFailedChanges(const std::string& top, const CommandOptions& options);
