// What is unusual in the text of an account file, in words for the log.
//
// Nothing of it stops a run. An administrator who misses an account in the comparison, or wonders
// what an update will do to a line, finds the line here by its number. One text for each kind of
// oddity, however many lines have it, so that a file of comments does not fill the log. Names and
// other bytes of the file are not repeated. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "accountdb/account_line.h"

namespace orvs {

// Ahead of the first empty line, which is the last one looked at.
std::vector<std::string> odditiesOf(std::string_view text, AccountKind kind);

}  // namespace orvs
