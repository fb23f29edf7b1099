// Whether a conversion would make one account of two, give away what is root's, or has nothing to
// do with this zone: what idshift.strict refuses and a dry run warns of.
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
