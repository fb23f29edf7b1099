// The steps of a run that make the id maps (idmap/id_maps.h) and judge them before anything follows
// them. Each answers as driver/run.h says; what refuses is on standard error.
#pragma once

#include "driver/run.h"

// Makes a step that asks the agent. What it throws becomes the words and the status for it.
int askingAgent(const Run& run, int (*step)(const Run& run));

// Fills the maps, on the accounts as they will be once what former runs have planned is done. A
// --commit-all does it here. Maps that checkApproval has made stand.
int makeMaps(const Run& run);

// --expect: makes the maps and holds them against the approved plan. Changes nothing, so that it
// can come before the log is opened for writing: a run that is refused has touched nothing.
int checkApproval(const Run& run);

// idshift.strict: 169 for a commit that merge_check.h has doubts about.
int judgeMaps(const Run& run);
