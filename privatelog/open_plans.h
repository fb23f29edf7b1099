// Finds the plans of former runs that are still to be carried out, and which of their updates the
// account files show as made.
//
// Reads the log, its index, passwd and group. Nothing is written or printed; a file that cannot be
// read counts as missing.
#pragma once

#include <vector>

#include "privatelog/account_plan.h"

// The open plans, oldest first: those that are not closed and whose section, if they have one, is
// neither undone nor lost. Empty when the log or the index is missing or unusable. Cheap for a log
// of any length when there is no plan.
std::vector<AccountPlan> findOpenPlans();

// The updates of `plan` that were made: an account of that name has the new ids.
std::vector<PlannedUpdate> updatesMade(const AccountPlan& plan);
