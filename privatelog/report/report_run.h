// The report: a readable table of all changes in the log that are not undone, section by section.
//
// Reads the log from the disk and writes to the named file, or to standard output for "-". Every
// failure ends the report with a message.
#pragma once

#include <string>

#include "privatelog/loaded_log.h"

// `loaded` was loaded from the log; it has the ids for further names of an inode. With `hardened`
// only lines that the index vouches for are shown. With `asJson` only rows are written, as JSON
// lines. False when a signal or a failure ended the report.
bool writeReport(const std::string& fileName, LoadedLog& loaded, bool hardened, bool asJson);
