// What happens to one entry: skipped, recorded as a further link, or given its new owner with a
// record around the change; then whether the walk goes into it.
//
// The only place that changes ownership in a conversion. No failure here ends the walk: each one is
// reported and the entry is left as it is.
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

  // The setting idshift.preserve.execution.bits. Read once a walk, not after every change: nothing
  // sets a key of the settings between the start of a walk and its end.
  bool preserveBits = false;

  bool isStrict = false;  // the setting idshift.strict
  // By idshift.convert.acls and idshift.preserve.capabilities, read once as well.
  std::shared_ptr<AttributeChanges> attributes;

  WalkVisitor* visitor = nullptr;  // or somebody who is told of each entry
};

// The context of one walk, as options and settings have it. `newOwners` and `visitor` are the
// caller's.
WalkContext walkContext(const CommandOptions& options,
                        NewOwners& newOwners,
                        WalkVisitor* visitor = nullptr);

// What all entries of one directory share.
struct DirectoryContext {
  uint64_t device = 0;  // st_dev of the directory, 0 when unknown

  // Owners are changed through a pin: somebody besides root can exchange the directory's entries,
  // or the mode has to be put back.
  bool mustPin = true;
};

struct Processed {
  bool changed = false;  // the entry, or what its link leads to, got a new owner
  bool descend = false;  // the entry is a directory that the walk is to enter
};

// An entry of the current directory, as the walk has found it.
struct FoundEntry {
  const std::string& path;  // the full path, for messages and the log
  const char* name;         // the end of `path`: what system calls are given
  EntryStatus& status;      // lstat's; under --follow a link's is replaced by its target's
  PinnedEntry& pinned;      // may hold the entry since that look; is filled when it is needed
};

// `followed` is true only when `entry.status` is already that of the link's target.
Processed processEntry(const FoundEntry& entry,
                       const WalkContext& walk,
                       const DirectoryContext& directory,
                       bool followed);

// Gives an entry these ids, whatever the maps say.
void changeEntry(const FoundEntry& entry,
                 const WalkContext& walk,
                 const DirectoryContext& directory,
                 bool followed,
                 OwnerIds newIds);
