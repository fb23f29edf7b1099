// Which ids an entry and an account get: the decisions alone, no system call.
//
// Both read the id maps, which stay as they are from now on, and the ids found; they answer with
// the pair to set, or with nothing when neither id is mapped. They differ about the group of a user
// who moves: an entry follows to the zone's primary group only out of the user's local one, an
// account always. Ids are unsigned 32-bit. Cannot fail.
#pragma once

#include <array>
#include <optional>

#include "entry/file_ids.h"

// For an entry. Nothing also when the pair is the one on disk: even a change to the same ids would
// clear set-id bits and file capabilities.
std::optional<OwnerIds> newIdsOfEntry(OwnerIds onDisk);

// For a line of the passwd file. Equal ids are an answer like any other.
std::optional<OwnerIds> newIdsOfAccount(OwnerIds present);

// The same for one entry after the other. A tree has few owners, so answers are kept: one for each
// place that a pair of ids can have in a small table.
class NewOwners {
 public:
  const std::optional<OwnerIds>& of(OwnerIds onDisk) {
    const uint32_t mixed = onDisk.uid * 0x9e3779b1u + onDisk.gid * 0x85ebca6bu;
    Kept& kept = table[mixed >> (32 - kBits)];
    if (!kept.isFilled || kept.onDisk != onDisk)
      kept = {onDisk, true, newIdsOfEntry(onDisk)};
    return kept.answer;
  }

 private:
  struct Kept {
    OwnerIds onDisk;
    bool isFilled = false;
    std::optional<OwnerIds> answer;
  };

  static constexpr unsigned kBits = 10;
  std::array<Kept, size_t{1} << kBits> table;
};
