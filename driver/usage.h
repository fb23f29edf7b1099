// The three texts about the command line: usage, version, and the dump of the options.
//
// Each line is printed, and logged at level 1. People read the texts and scripts compare them, so
// blanks at the end of a line count. Cannot fail.
#pragma once

#include "services/command_options.h"

// To standard output, even after a bad command line.
void printUsage();
void printVersion();

// Prints the parsed options on standard error. The directories are shown as given, not cleaned.
void write2DebugLog(const CommandOptions& options);
