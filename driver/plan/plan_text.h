// Writes a plan as JSON and reads one. packaging/plan.schema.json and idshift-plan(5) describe the
// format. Pure.
//
// Each conflict and each account is one line, so that two plans can be compared by eye. A name that
// is not UTF-8 stands as "nameBytes", in base64; so do domain and host. Reading refuses keys that
// are unknown, missing or double, numbers out of range, another format or version, and two
// conflicts for one id. Memory stays in proportion to the rows, however the text is nested.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "driver/plan/approved_plan.h"

// A longer text is no plan.
inline constexpr size_t kLongestPlan = size_t{64} << 20;

std::string formatPlanText(const ApprovedPlan& plan);

struct PlanReading {
  std::optional<ApprovedPlan> plan;
  std::string fault;  // continues "the plan ..."; empty when there is a plan
};

PlanReading readPlanText(std::string_view text);

// One row as the plan has it, in printable ASCII, for messages.
std::string shownConflict(const ConflictRecord& record);
std::string shownAccount(const PlannedUpdate& update);
std::string shownText(const std::string& bytes);
