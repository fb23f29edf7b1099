// Whether the conversion at hand is the approved one: values in, lines out.
//
// Compared are domain, conflicts and account updates. One that is approved and is not at hand any
// more counts as made when its account bears the approved ids: so an approved conversion can be
// continued and repeated. Of a gid that no local group bears it is the users with that primary
// group who have to bear the new one. Pure.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "driver/plan/approved_plan.h"

// The ids that accounts bear: whether it is a group, and its name. One name may stand for several.
using BorneIds = std::multimap<std::pair<bool, std::string>, OwnerIds>;

// One line for each difference; none when the plans agree. Where the options are others, each line
// says so.
std::vector<std::string> differencesOf(const ApprovedPlan& approved,
                                       const ApprovedPlan& present,
                                       const BorneIds& borne);
