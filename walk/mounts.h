// Which file systems the walk treats as remote, and where it crosses a mount point.
//
// A file system is remote when statfs() says so; a statfs() that fails counts as not remote. "Not
// remote" is remembered for each st_dev. statfs() is called again for
//   - symbolic links, by the walk and only where the answer matters: statfs() follows a link, and
//     the target may be on another file system,
//   - directories on an automounter's file system, because statfs() triggers a mount and lstat()
//     does not,
//   - everything on a device that was not found local yet.
// A device counts as an automounter's when statfs() says so, or when the st_dev of a directory
// changes because statfs() was called.
#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "entry/pinned_entry.h"
#include "services/command_options.h"
#include "services/logger.h"

// Whether `type`, statfs's f_type at its full width, is a remote kind.
constexpr bool isRemoteType(uint64_t type) {
  // Required: the second value is the CIFS magic widened with its sign and compared at 64 bits;
  // which mounts are left out without --nfs depends on it.
  return type == 0x6969 || type == 0xFFFFFFFFFF534D42;
}

// Calls statfs(), which follows links.
bool isOnRemote(const char* name);

// Link: a symbolic link for which statfs() was not called yet.
enum class EntryLook { Take, Link, Remote, Unreadable };

// The first look at an entry: its status, and whether it is left out as remote.
class EntryProbe {
 public:
  // With `askRemote` false statfs() is never called and nothing is remote. With `byMountTable`
  // (idshift.strict) the file systems that mount_table.h calls remote are remote too.
  EntryProbe(bool askRemote, bool byMountTable);

  // Whether the target of a symbolic link is remote.
  bool isTargetRemote(const char* name) const;

  // `name` is relative to the current directory. Fills `status`, except for an Unreadable entry,
  // for which errno is set. An entry that is both unreadable and remote is Remote, with `status`
  // unfilled. With `pinned` the status is read through a pin, which then stays for the change.
  EntryLook look(const char* name, EntryStatus& status, PinnedEntry* pinned = nullptr);

 private:
  enum class Device { Local, Automounter };

  bool isKnownLocal(const EntryStatus& status);
  EntryLook askAnew(const char* name, EntryStatus& status);

  bool enabled;
  std::set<uint64_t> remoteDevices;    // by the table of mounts
  std::map<uint64_t, Device> devices;  // without remote ones: the walk stays off those
  uint64_t lastLocal = 0;              // the last one found Local, or 0, which is no st_dev
};

// True when --xdev keeps the walk out of the directory described by `status`, because it lies on
// another device than `parentDevice` (0: unknown, then the answer is false). Reports a crossing
// that is allowed. `path` is for the message.
bool checkMountCross(const char* path,
                     const EntryStatus& status,
                     uint64_t parentDevice,
                     const CommandOptions& options,
                     const orvs::LoggerPtr& logger);
