// The steps of a run that make the id maps (idmap/id_maps.h) and judge them. Each returns what
// driver/run.h says; the reason of a refusal is on standard error.
#pragma once

#include "driver/run.h"

// Runs a step that asks the agent. An exception of the step becomes its message and status.
int askingAgent(const Run& run, int (*step)(const Run& run));

// Fills the maps from the accounts as they will be when the plans of former runs are carried out. A
// --commit-all carries them out here. Keeps the maps that checkApproval has made.
int makeMaps(const Run& run);

// --expect: makes the maps and compares them with the approved plan. Changes nothing on the
// machine, so it can come before the log is opened for writing: a run that is refused has touched
// nothing.
int checkApproval(const Run& run);

// idshift.strict: returns 169 for a commit that merge_check.h has doubts about. A dry run gets
// warnings.
int judgeMaps(const Run& run);
