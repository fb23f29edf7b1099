// --plan and --expect: the conversion at hand is written down, or held against an approved one.
//
// Both read the maps (idmap/id_maps.h) after the builders have filled them, and the accounts as the
// account phase will find them. Nothing of what --expect looks at is changed by it.
#pragma once

#include <optional>

#include "driver/account_update.h"
#include "driver/plan/approved_plan.h"

// Reads the plan behind --expect. Returns 0 with `approved` set, or the status, with the reason on
// standard error.
int readApprovedPlan(const orvs::LoggerPtr& logger,
                     const CommandOptions& options,
                     std::optional<ApprovedPlan>& approved);

// 0 when the maps are those of `approved`; otherwise 168, and each difference is a line on standard
// error.
int holdAgainst(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                const ApprovedPlan& approved,
                const AccountFiles& accounts);

// Writes the plan behind --plan. Returns 0, or 6 with the reason on standard error.
int writePlan(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              const AccountFiles& accounts);
