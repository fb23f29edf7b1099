// Finds out whether a conversion would merge two accounts or give away what belongs to root, and
// whether its zone is probably the wrong one. idshift.strict refuses such a commit; a dry run
// warns.
//
// Pure: reads the accounts and the maps after both passes have filled them.
#pragma once

#include <string>
#include <vector>

#include "driver/account_update.h"

struct MapDoubts {
  std::vector<std::string> refusals;  // sentences without a line end
  std::vector<std::string> warnings;
};

MapDoubts findDoubts(const AccountFiles& accounts);
