// Pins what a path names, step by step, and judges the way to it.
//
// A path is walked one component at a time, so its length is not bounded by PATH_MAX and each
// directory and each symbolic link on the way is seen. What is found is held by an O_PATH
// descriptor: whoever renames things meanwhile, the descriptor stays with the inode that was looked
// at. Relative paths begin at the current directory.
//
// Failures are errno values in the result, those that the kernel gives for the same path. Nothing
// here is changed, printed or created. This is the slow, careful road; the usual case of undo opens
// a bare name in the current directory instead.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "entry/entry_status.h"
#include "services/unique_fd.h"

enum class LastLink { Keep, Follow };

// Whether a link that somebody besides root can have put there ends the walk with ELOOP. A link is
// foreign unless root alone can change the directory that holds it and every directory above; in a
// sticky directory of root's a link of root's own will do. To a caller who is not root his own
// links are not foreign either. Who owns a link elsewhere proves nothing: anybody can move a link
// of root's about inside a directory of his own.
enum class ForeignLinks { Follow, Refuse };

struct PinnedPath {
  UniqueFd object;     // empty when the path does not resolve
  EntryStatus status;  // of the object
  int error = 0;       // errno when there is no object

  // The directory in which the last name was looked up and that name; empty unless the way up to
  // there resolved. With error ENOENT this is where a file of that name would be created.
  UniqueFd directory;
  std::string lastName;

  // Every directory and link on the way can be changed by root alone; when there is no object, on
  // the way to `stoppedAt`.
  bool rootAlone = false;
  // A link that was followed, or that ended the walk, is foreign.
  bool foreignLink = false;

  // When there is no object: the last directory that the path resolved to, or what lies there and
  // does not tell its status, which no local file system does.
  UniqueFd stoppedAt;
};

PinnedPath pinPath(std::string_view path, LastLink lastLink, ForeignLinks foreignLinks);

// chdir for a path of any length; false with errno, and then nothing has changed.
bool changeDirectory(const std::string& path);

// True when, apart from root, nobody can make `entry`'s name in `directory` mean something else. In
// a sticky directory that is open to others this holds only for a directory of root's own: files
// and links of root's can be moved or linked into place by others, such a directory cannot.
bool rootAloneChanges(const struct stat& directory, const struct stat& entry);

// True when somebody besides root and ourselves can put names into the directory.
bool othersMayWrite(const struct stat& directory);

// The rule of fs.protected_regular: in a sticky, world-writable directory an entry of `owner` is
// taken as meant only when that is us or the directory's owner.
bool mayBePlanted(const struct stat& directory, uid_t owner);
