// The tables of a dry run: one of user id conflicts and one of group id conflicts.
//
// Reads the maps (idmap/id_maps.h) after the builders have filled them and changes nothing. Every
// line goes to standard output and, at level 1, to the logger. The columns are 32, 24, 16 and 8
// wide. A wider cell pushes the rest of its row to the right, and is cut after 79 bytes. Cannot
// fail.
#pragma once

#include "services/logger.h"

// Prints both tables, users first.
void printConflictSummary(const orvs::LoggerPtr& logger);
