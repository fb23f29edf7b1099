// The directory arguments: cleaned, told apart, and handed to the walk.
//
// normalizeTopDir is pure text. walkTopDirs does the rest, in the order of the command line: a
// directory that was already entered, by itself or below another argument, is left out, everything
// else is walked, also what lstat cannot find, which the walk then refuses. A walk ends in the
// parent of its top directory, and the next relative argument counts from there.
#pragma once

#include <optional>
#include <string>

#include "services/command_options.h"
#include "services/logger.h"
#include "walk/walk_visitor.h"

// The absolute form of one argument. Bytes only: nothing is resolved on the disk and "//" in the
// middle stays. A relative argument is put behind `workingDir`, and stays relative without one. The
// result can be empty ("/."), which no directory answers to.
std::string normalizeTopDir(std::string path, const std::optional<std::string>& workingDir);

// Walks the directories of `options`. Returns 0 or the first non-zero status of the walk, which
// ends it unless there is a `visitor`, who is told of all that can be walked; ends early with 0
// when a signal is pending. The current directory ends where the last walk did. Lets through
// std::out_of_range, which the walk throws for a path without a slash. A commit tries changes again
// that failed in earlier runs (walk/failed_changes.h) before the walk comes by them.
int walkTopDirs(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                WalkVisitor* visitor = nullptr);

// The same, again and again until a walk changes nothing: what came behind the walk is found. Four
// walks at most; when the last one still changes something, that is left undone, and said. All
// begin in the current directory.
int walkUntilQuiet(const orvs::LoggerPtr& logger, const CommandOptions& options);

// Only tries those again: for a commit that finds no conflict, and walks nowhere.
void retryInTopDirs(const CommandOptions& options);
