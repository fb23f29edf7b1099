// Resolves a path one component at a time, pins what the path names, and judges the way to it.
//
// Therefore a path may be longer than PATH_MAX, and each directory and symbolic link on the way is
// seen. The result is held by an O_PATH descriptor, which stays with the inode that was looked at,
// whoever renames things meanwhile. Relative paths begin at the current directory.
//
// A failure is the errno value that the kernel gives for the same path, in the result. Nothing is
// changed, printed or created. This way is slow; where undo can, it opens a bare name in the
// current directory instead.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "entry/entry_status.h"
#include "services/unique_fd.h"

enum class LastLink { Keep, Follow };

// Whether a foreign link ends the resolution with ELOOP. A symbolic link is foreign unless root
// alone can change the directory that holds the link and every directory above it. In a sticky
// directory of root's, a link that root owns is not foreign either. For a caller who is not root,
// links that he owns are not foreign. Elsewhere the owner of a link proves nothing: anybody can
// move a link of root's about inside a directory of his own.
enum class ForeignLinks { Follow, Refuse };

struct PinnedPath {
  UniqueFd object;     // empty when the path does not resolve
  EntryStatus status;  // of the object
  int error = 0;       // errno when there is no object

  // The directory in which the last name was looked up, and that name; both empty when the path did
  // not resolve that far. With error ENOENT a file of that name would be created in this directory.
  UniqueFd directory;
  std::string lastName;

  // Root alone can change every directory and link on the way to the object, or to `stoppedAt` when
  // there is no object.
  bool rootAlone = false;
  // A link that was followed, or that ended the resolution, is foreign.
  bool foreignLink = false;

  // When there is no object: the last directory to which the path resolved. Or an entry in that
  // directory whose status could not be read; that happens on no local file system.
  UniqueFd stoppedAt;
};

PinnedPath pinPath(std::string_view path, LastLink lastLink, ForeignLinks foreignLinks);

// chdir() for a path of any length. On false, with errno, the current directory is unchanged.
bool changeDirectory(const std::string& path);

// True when nobody but root can make the name of `entry` in `directory` lead to something else. In
// a sticky directory that others can write, this holds only when `entry` is itself a directory of
// root's: others can link root's files and links into place, but not a directory.
bool rootAloneChanges(const struct stat& directory, const struct stat& entry);

// True when somebody besides root and the caller can create names in the directory.
bool othersMayWrite(const struct stat& directory);

// The rule of fs.protected_regular: in a sticky, world-writable directory an entry may be planted
// unless `owner` is the caller or the owner of the directory.
bool mayBePlanted(const struct stat& directory, uid_t owner);
