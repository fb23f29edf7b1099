// What happens to one entry: skipped, recorded as a further link, or given its new owner with a
// record around the change; then whether the walk goes into it.
//
// The only place that changes ownership in a conversion. No failure here ends the walk: each one is
// reported and the entry is left as it is.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "entry/pinned_entry.h"
#include "services/command_options.h"
#include "services/logger.h"
#include "walk/new_owner.h"

// What all entries of one directory share. The references outlive the walk.
struct EntryContext {
  const CommandOptions& options;
  const orvs::LoggerPtr& logger;
  NewOwners& newOwners;

  // The setting idshift.preserve.execution.bits. Read once a walk, not after every change: nothing
  // sets a key of the settings between the start of a walk and its end.
  bool preserveBits = false;

  uint64_t parentDevice = 0;  // st_dev of the directory, 0 when unknown

  // Owners are changed through a pin: somebody besides root can exchange the directory's entries,
  // or the mode has to be put back.
  bool mustPin = true;
};

enum class Descend { No, Yes };

// `path` is the entry's full path, for messages and the log; system calls use its last component,
// relative to the current directory. `status` is the entry's lstat record; under --follow a link's
// is replaced by its target's. `followed` is true only when `status` is already the target's.
// `pinned` may hold the entry since that look; otherwise it is put there when it is needed.
// Descend::Yes is meant for the case that `status`, on return, describes a directory.
Descend processEntry(const std::string& path,
                     struct stat& status,
                     PinnedEntry& pinned,
                     const EntryContext& context,
                     bool followed);
