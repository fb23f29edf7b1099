// The two files that a rewrite of an account file makes beside it: the backup and the replacement.
//
// Nothing here touches the account file itself or logs; the caller renames, removes what failed and
// has the words. The replacement is known to be whole before it counts: room is reserved before the
// first byte, every write is tested, the file is synced, and length, owner and mode are compared
// after closing. So a full disk shows here, while the account file still stands.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace orvs {

// Copies `path` to `backup`, with the timestamps of `path`. False when `path` has no status or one
// of the two cannot be opened. A new backup is readable by its owner alone; an existing one keeps
// its mode and owner.
bool makeBackup(const std::string& path, const std::string& backup);

// What a replacement takes over from the file that it replaces: owner and mode, of which execute
// and set-id bits and write for others are dropped, and on request its attributes.
struct ReplacementModel {
  struct stat info = {};
  const std::string* attributesOf = nullptr;  // the file that has them, or null
};

// Writes `text` to `temporary`. False when the file is not whole, or not as the model wants it; it
// may exist.
bool writeReplacement(const std::string& temporary,
                      const ReplacementModel& model,
                      std::string_view text);

// Puts a rename in the directory of `path` on disk. Errors are ignored: the rename is done.
void syncDirectoryOf(const std::string& path);

}  // namespace orvs
