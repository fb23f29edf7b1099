// Which plans of former runs are still to be carried out, and what the account files show of them.
//
// Both read files where they lie: the log, its index, passwd and group. Nothing is written, nothing
// printed; what cannot be read is as if it were not there.
#pragma once

#include <vector>

#include "privatelog/account_plan.h"

// The plans that are neither closed nor of a section that was undone or is gone, oldest first.
// Reads the log and its index where they lie; empty when one of them is missing or of no use. Cheap
// where there is no plan, whatever the length of the log.
std::vector<AccountPlan> findOpenPlans();

// Updates of `plan` that the account files show as made. An update is made when an account of that
// name has the new ids.
std::vector<PlannedUpdate> updatesMade(const AccountPlan& plan);
