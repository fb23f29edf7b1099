// The two files that a rewrite of an account file makes beside it: the backup and the replacement.
//
// Nothing here touches the account file itself or logs; the caller renames, removes what failed and
// has the words. The replacement is known to be whole before it counts: room is reserved before the
// first byte, every write is tested, the file is synced, and length, owner and mode are compared
// after closing. So a full disk shows here, while the account file still stands.
#pragma once

#include <sys/stat.h>

#include <list>
#include <string>

namespace orvs {

// Copies `path` to `backup`, with the timestamps of `path`. False when `path` has no status or one
// of the two cannot be opened. A new backup is readable by its owner alone; an existing one keeps
// its mode and owner.
bool makeBackup(const std::string& path, const std::string& backup);

// Writes `lines`, each with a newline, to `temporary`, with owner and mode of `model`; execute and
// set-id bits and write for others are dropped. False when the file is not whole; it may exist.
bool writeReplacement(const std::string& temporary,
                      const struct stat& model,
                      const std::list<std::string>& lines);

// Puts a rename in the directory of `path` on disk. Errors are ignored: the rename is done.
void syncDirectoryOf(const std::string& path);

}  // namespace orvs
