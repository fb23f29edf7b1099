// --plan and --expect: writes the present conversion down, or compares it with an approved one.
//
// Both read the maps (idmap/id_maps.h) after the builders have filled them, and the accounts as the
// account phase will find them. --expect changes nothing.
#pragma once

#include <optional>

#include "driver/account_update.h"
#include "driver/plan/approved_plan.h"

// Reads the plan of --expect. Returns 0 and sets `approved`, or returns the status with the reason
// on standard error. After a signal it returns 0 and sets nothing.
int readApprovedPlan(const orvs::LoggerPtr& logger,
                     const CommandOptions& options,
                     std::optional<ApprovedPlan>& approved);

// Returns 0 when the maps are those of `approved`. Otherwise returns 168, with a line for each
// difference on standard error.
int holdAgainst(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                const ApprovedPlan& approved,
                const AccountFiles& accounts);

// Writes the plan of --plan. Returns 0, or 6 with the reason on standard error.
int writePlan(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              const AccountFiles& accounts);
