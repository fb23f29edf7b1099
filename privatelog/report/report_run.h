// The report: a readable table of all changes that the log still holds, section by section.
//
// Reads the log from the disk and writes to the named file, or to standard output for "-". Every
// failure ends the report with a message of its own.
#pragma once

#include <string>

#include "privatelog/loaded_log.h"

// `loaded` was read from the log: it knows the ids of further names of an inode. With `hardened`
// only what the index vouches for is shown. `asJson`: the rows alone, as JSON lines. False when a
// signal or a failure ended the report.
bool writeReport(const std::string& fileName, LoadedLog& loaded, bool hardened, bool asJson);
