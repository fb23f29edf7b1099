// Which new ids an entry and an account get. Decisions only, no system call; cannot fail.
//
// Each function reads the finished id maps and returns the pair of ids to set, or nothing when
// neither id is mapped. They differ in the group of a user whose uid changes. An entry gets the
// zone's primary group only if it has the user's local primary group; an account always gets it.
// Ids are unsigned 32-bit.
#pragma once

#include <array>
#include <optional>

#include "entry/file_ids.h"

// For an entry. Also nothing when the pair is the one on disk: even a change to the same ids would
// clear set-id bits and file capabilities.
std::optional<OwnerIds> newIdsOfEntry(OwnerIds onDisk);

// For a line of the passwd file. The pair may equal the present one.
std::optional<OwnerIds> newIdsOfAccount(OwnerIds present);

// newIdsOfEntry() for many entries. A tree has few owners, so a table of 1,024 places keeps
// answers. A pair of ids has one place, and a later pair of that place replaces the answer.
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
