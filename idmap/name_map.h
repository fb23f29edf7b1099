// Name map files: which zone name belongs to a local name.
//
// A text file. On each line the first word is the local name, the second the zone name, and the
// rest is ignored. Words are separated by white space of the C locale. A line with fewer than two
// words is ignored. There are no comments and no quoting. Names are bytes, taken as they are, NUL
// included. Of two lines for one local name the later one counts.
#pragma once

#include <optional>
#include <string_view>

#include "idmap/id_maps.h"

// The first two words of a line.
struct NamePair {
  std::string_view localName;
  std::string_view zoneName;
};

// The two words, or nothing for a line with fewer. Pure; the views point into `line`.
std::optional<NamePair> parseNameMapLine(std::string_view line);

// Adds the pairs of the file `path` to `map`. Returns 6 when the file cannot be opened or read,
// otherwise 0. A null path adds nothing; a signal ends the reading early (interrupt::pending()
// tells). Prints nothing.
int LoadNameMap(const char* path, NameMap& map);
