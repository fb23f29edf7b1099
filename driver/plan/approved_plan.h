// A conversion as a value that somebody can look at, approve, and have made exactly so.
//
// The domain, the conflicts and the updates of the account files count. Host, date and options only
// show where a plan comes from and never decide anything. Ids are unsigned 32-bit, names are bytes.
// plan_text writes and reads a plan, plan_differences compares two.
#pragma once

#include <string>
#include <vector>

#include "idmap/id_maps.h"
#include "privatelog/account_plan.h"
#include "services/command_options.h"

// The options on which the maps depend. A name map is represented by its SHA-256 in hexadecimal;
// empty when there was none.
struct PlanOptions {
  IdRange range;
  std::string userMap;
  std::string groupMap;
};

struct ApprovedPlan {
  std::string domain;
  std::string host;
  std::string date;  // UTC, "2026-11-21T18:00:00Z"
  PlanOptions options;
  ConflictMap users;   // by local id
  ConflictMap groups;  // by local id
  std::vector<PlannedUpdate> accounts;
};
