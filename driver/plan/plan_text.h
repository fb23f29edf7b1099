// A plan as JSON, as packaging/plan.schema.json and idshift-plan(5) tell: values to text and back.
//
// One line for each conflict and account, so that two plans can be compared by eye. A name that is
// no UTF-8 stands as "nameBytes", in base64; so do domain and host. Reading is strict: keys that
// are unknown, missing or there twice, numbers out of range, another format or version, two
// conflicts for one id. Memory stays in proportion to the rows, whatever the text nests. Pure.
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
  std::string fault;  // what is wrong, behind "the plan"; empty when there is a plan
};

PlanReading readPlanText(std::string_view text);

// One row as the plan has it, in ASCII alone and without control characters, for messages.
std::string shownConflict(const ConflictRecord& record);
std::string shownAccount(const PlannedUpdate& update);
std::string shownText(const std::string& bytes);
