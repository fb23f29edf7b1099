// The directory arguments: cleaned, compared, and walked.
//
// normalizeTopDir only handles text. walkTopDirs walks the directories in the order of the command
// line. It leaves out a directory that was already entered, by itself or below another argument. It
// also hands the walk a name that lstat does not find, and the walk then refuses it. A walk ends in
// the parent of its top directory, and the next relative argument counts from there.
#pragma once

#include <optional>
#include <string>

#include "services/command_options.h"
#include "services/logger.h"
#include "walk/walk_visitor.h"

// The absolute form of one argument. Nothing is resolved on the disk, and "//" in the middle stays.
// A relative argument is put behind `workingDir`, and stays relative without one. The result is
// empty for "/.", and the walk refuses an empty name.
std::string normalizeTopDir(std::string path, const std::optional<std::string>& workingDir);

// Walks the directories of `options`. Returns 0 or the first status of a walk that is not 0.
// Without a `visitor` such a status ends the loop; a visitor gets all that can be walked. After a
// signal it ends early with 0. The current directory stays where the last walk ended. Throws the
// std::out_of_range of a walk whose path has no slash. Before each walk a commit tries changes
// again that failed in earlier runs (walk/failed_changes.h).
int walkTopDirs(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                WalkVisitor* visitor = nullptr);

// Walks the directories again until a walk changes nothing, to find entries that came where the
// walk had been already. Makes four walks at most. If the last one still changes something, that is
// reported and noted as left undone. Each walk begins in the directory in which the first one
// began.
int walkUntilQuiet(const orvs::LoggerPtr& logger, const CommandOptions& options);

// Only tries the failed changes again: for a commit that finds no conflict and walks no tree.
void retryInTopDirs(const CommandOptions& options);
