// The walk over a tree: every entry below a top directory is handed to processEntry().
//
// The walk uses the current directory of the process; nothing else may change that during a walk.
#pragma once

#include <cstdint>
#include <string>

#include "services/command_options.h"
#include "walk/walk_visitor.h"

// The exit status of a run whose walk failed.
inline constexpr int kWalkFailed = 166;

// Walks everything below `path` (cleaned, absolute; the top itself is not changed). `topDevice` is
// its st_dev, 0 when unknown. Returns 0, or kWalkFailed when the top could not be walked. Throws
// std::out_of_range ("basic_string::erase") for a path without a slash. Once the top was opened the
// walk ends with the parent of the top as the current directory. After an interrupt it ends early,
// between two entries, and returns 0. `visitor` may be null.
int MapFilesInDir(const std::string& path,
                  uint64_t topDevice,
                  const CommandOptions& options,
                  WalkVisitor* visitor = nullptr);
