// The three texts about the command line: usage, version, and the dump of the options.
//
// Each line is printed and logged at level 1. They are read by people and compared by scripts, so
// blanks at the end of a line count. Cannot fail.
#pragma once

#include "services/command_options.h"

// On standard output, also when it follows a bad command line.
void printUsage();
void printVersion();

// What the command line came to, on standard error. Directories as given, not yet cleaned.
void write2DebugLog(const CommandOptions& options);
