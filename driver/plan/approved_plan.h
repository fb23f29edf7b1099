// A conversion as somebody can look at it, approve it, and have exactly it made: values alone.
//
// What counts is the domain, the conflicts and the updates of the account files. Host, date and
// options say where a plan comes from and never decide anything. Ids are unsigned 32-bit, names are
// bytes. plan_text writes and reads it, plan_differences compares two.
#pragma once

#include <string>
#include <vector>

#include "idmap/id_maps.h"
#include "privatelog/account_plan.h"
#include "services/command_options.h"

// The options on which the maps depend. A name map is known by its SHA-256 in hexadecimal; empty:
// there was none.
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
