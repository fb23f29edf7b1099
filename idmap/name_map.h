// Name map files: which zone name stands for a local name.
//
// A text file of lines; on each line the first word is the local name, the second the zone name,
// and the rest is ignored. Words are separated by white space of the C locale. Lines of fewer than
// two words say nothing. There are no comments and no quoting; names are bytes, taken as they are,
// NUL included. When a local name comes twice, the later line holds.
#pragma once

#include <optional>
#include <string_view>

#include "idmap/id_maps.h"

// The first two words of a line.
struct NamePair {
  std::string_view localName;
  std::string_view zoneName;
};

// Both words, or nothing for a line of fewer than two. Pure; the views point into `line`.
std::optional<NamePair> parseNameMapLine(std::string_view line);

// Adds the pairs of the file `path` to `map`. Returns 0, also for a null path and when a signal
// ends the reading (interrupt::pending() tells); 6 when the file cannot be opened or read. Says
// nothing.
int LoadNameMap(const char* path, NameMap& map);
