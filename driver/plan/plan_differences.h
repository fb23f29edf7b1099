// Compares the present conversion with the approved one. Pure.
//
// Domain, conflicts and account updates are compared. An approved conflict or update that is not
// present any more is no difference if its account has the approved new ids already: then it was
// made. So an approved conversion can be continued and repeated. For a gid that no local group has,
// the users with that primary group must have the new one.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "driver/plan/approved_plan.h"

// The present ids of the accounts, by kind (true: group) and name. Several accounts may have one
// name.
using BorneIds = std::multimap<std::pair<bool, std::string>, OwnerIds>;

// One line for each difference; none when the plans agree. If the options differ, every line says
// so.
std::vector<std::string> differencesOf(const ApprovedPlan& approved,
                                       const ApprovedPlan& present,
                                       const BorneIds& borne);
