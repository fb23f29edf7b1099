// File systems as the walk sees them: remote ones, and the borders between them.
//
// A file system is remote when statfs says so; a statfs that fails counts as not remote. The
// question is about a file system, so "not remote" is remembered by st_dev. statfs is called again
// for
//   - symbolic links, by the walk where the answer makes a difference: statfs follows them and may
//     answer about another file system,
//   - directories of an automounter's file system, because statfs mounts what lstat does not,
//   - everything on a device that was not found local yet.
// A device is an automounter's when statfs says so, or when a directory changes its device by being
// asked about.
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

// Asks statfs now, following links.
bool isOnRemote(const char* name);

// Link: a symbolic link, not asked about yet.
enum class EntryLook { Take, Link, Remote, Unreadable };

// The first look at an entry: its status record, and whether it is left out as remote.
class EntryProbe {
 public:
  // With `askRemote` false no statfs is made and nothing is remote. With `byMountTable` what the
  // table of mounts calls remote is so as well (idshift.strict).
  EntryProbe(bool askRemote, bool byMountTable);

  // Whether what a symbolic link leads to is remote.
  bool isTargetRemote(const char* name) const;

  // `name` is relative to the current directory. Fills `status` unless the entry is Unreadable;
  // errno is lstat's then. An entry that is both unreadable and remote is Remote. With `pinned` the
  // entry is looked at through a pin, which stays there for its change.
  EntryLook look(const char* name, EntryStatus& status, PinnedEntry* pinned = nullptr);

 private:
  enum class Device { Local, Automounter };

  bool isKnownLocal(const EntryStatus& status);
  EntryLook askAnew(const char* name, EntryStatus& status);

  bool enabled;
  std::set<uint64_t> remoteDevices;    // by the table of mounts
  std::map<uint64_t, Device> devices;  // never a remote one: the walk does not stay on those
  uint64_t lastLocal = 0;              // 0, no file system's st_dev, or the last one found Local
};

// True when the directory described by `status` lies on another device than `parentDevice` (0 is
// unknown, and never another one) and --xdev keeps the walk off it. Reports a crossing that is
// allowed. `path` is for the message.
bool checkMountCross(const char* path,
                     const EntryStatus& status,
                     uint64_t parentDevice,
                     const CommandOptions& options,
                     const orvs::LoggerPtr& logger);
