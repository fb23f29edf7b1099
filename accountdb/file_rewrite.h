// The two files that a rewrite of an account file makes beside it: the backup and the replacement.
//
// Nothing here touches the account file itself, and nothing logs. The caller renames, removes a
// replacement that failed, and has the messages. A full disk must show while the account file still
// stands. So a replacement counts only when it is known to be whole: room is reserved before the
// first byte, every write is tested, the file is synced, and length, owner and mode are compared
// after closing.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace orvs {

// Copies `path` to `backup`, with the timestamps of `path`. False when `path` has no status or one
// of the two files cannot be opened; errors of the copying are ignored. A new backup is readable by
// its owner alone; an existing one keeps its mode and owner.
bool makeBackup(const std::string& path, const std::string& backup);

// What a replacement takes over from the file that it replaces: the owner, the mode without
// execute, set-id and sticky bits and write for others, and on request the attributes.
struct ReplacementModel {
  struct stat info = {};
  const std::string* attributesOf = nullptr;  // the file to copy them from, or null
};

// Writes `text` to `temporary`. False when the file is not whole or not as `model` wants it; a part
// of the file may be left.
bool writeReplacement(const std::string& temporary,
                      const ReplacementModel& model,
                      std::string_view text);

// Brings a rename in the directory of `path` to the disk. Errors are ignored: the rename has been
// made.
void syncDirectoryOf(const std::string& path);

}  // namespace orvs
