// Which owner and group an entry gets: the decision alone, no system call.
//
// Reads the id maps and the ids found on disk; answers with the pair to set, or with nothing when
// neither id is mapped or the pair is the one on disk (even a change to the same ids would clear
// set-id bits and file capabilities). An entry in its owner's local primary group follows the owner
// to the zone's primary group, whatever gidMap says. Ids are unsigned 32-bit. Cannot fail.
#pragma once

#include <optional>

#include "entry/file_ids.h"

std::optional<OwnerIds> newOwner(OwnerIds onDisk);

// The same for one entry after the other. Neighbours mostly have one owner, so the answer before is
// kept; the maps stay as they are meanwhile.
class NewOwners {
 public:
  const std::optional<OwnerIds>& of(OwnerIds onDisk) {
    if (latest != onDisk) {
      latest = onDisk;
      answer = newOwner(onDisk);
    }
    return answer;
  }

 private:
  std::optional<OwnerIds> latest;
  std::optional<OwnerIds> answer;
};
