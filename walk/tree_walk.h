// The walk over the trees: every entry below a top directory is handed to processEntry.
//
// The walk lives in the process's current directory; nothing else may change that while it runs.
#pragma once

#include <cstdint>
#include <string>

#include "services/command_options.h"

// Walks everything below `path` (cleaned, absolute; the top itself is not changed). `topDevice` is
// its st_dev, 0 when unknown. Returns 0, or 166 when the top could not be walked. Throws
// std::out_of_range ("basic_string::erase") for a path without a slash. The current directory ends
// at the parent of the top.
int MapFilesInDir(const std::string& path, uint64_t topDevice, const CommandOptions& options);
