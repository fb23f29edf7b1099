// Deals with one entry: skips it, records it as a further hard link, or gives it its new owner with
// a record around the change. Then decides whether the walk enters it.
//
// This is the only place that changes owners in a conversion. No failure ends the walk: each one is
// reported, and the entry is left as it is.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "entry/pinned_entry.h"
#include "idmap/new_ids.h"
#include "services/command_options.h"
#include "services/logger.h"
#include "walk/attribute_changes.h"
#include "walk/walk_visitor.h"

// What all entries of a walk share. The references outlive the walk.
struct WalkContext {
  const CommandOptions& options;
  orvs::LoggerPtr logger;
  NewOwners& newOwners;

  // The setting idshift.preserve.execution.bits. Read once a walk: nothing changes the settings
  // during a walk.
  bool preserveBits = false;

  bool isStrict = false;  // the setting idshift.strict
  // Null when idshift.convert.acls and idshift.preserve.capabilities are off; read once as well.
  std::shared_ptr<AttributeChanges> attributes;

  WalkVisitor* visitor = nullptr;  // called for each entry; may be null
};

// The context of one walk, from options and settings. The caller owns `newOwners` and `visitor`.
WalkContext walkContext(const CommandOptions& options,
                        NewOwners& newOwners,
                        WalkVisitor* visitor = nullptr);

// What all entries of one directory share.
struct DirectoryContext {
  uint64_t device = 0;  // st_dev of the directory, 0 when unknown

  // Whether owners are changed through a pin: because somebody besides root can exchange the
  // directory's entries, or because the mode has to be put back.
  bool mustPin = true;
};

struct Processed {
  bool changed = false;  // the entry, or what its link leads to, got a new owner
  bool descend = false;  // the entry is a directory that the walk is to enter
};

// An entry of the current directory as the walk found it.
struct FoundEntry {
  const std::string& path;  // the full path, for messages and the log
  const char* name;         // the last component of `path`, for system calls
  EntryStatus& status;      // lstat()'s; with --follow a link's is replaced by its target's
  PinnedEntry& pinned;      // may hold the entry since that look; filled when needed
};

// `followed` is true only when `entry.status` is already that of the link's target.
Processed processEntry(const FoundEntry& entry,
                       const WalkContext& walk,
                       const DirectoryContext& directory,
                       bool followed);

// Gives an entry `newIds`, whatever the maps say.
void changeEntry(const FoundEntry& entry,
                 const WalkContext& walk,
                 const DirectoryContext& directory,
                 bool followed,
                 OwnerIds newIds);
