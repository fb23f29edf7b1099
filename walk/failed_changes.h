// Changes that failed in an earlier run are tried again: the account they belong to may have moved
// since, and then no map speaks of their ids any more.
//
// Only the recorded file itself is changed (by file system, inode number and birth time), and only
// while it has the ids that were recorded, the present maps say nothing about them, and the walk of
// this run would come by it. Messages, records and the count are those of the walk.
#pragma once

#include <string>

#include "services/command_options.h"

// Tries those below `top`, a directory as the walk is given it, once a run. The current directory
// is what it was when this returns.
void retryFailedChanges(const std::string& top, const CommandOptions& options);
