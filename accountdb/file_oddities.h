// What is unusual in an account file, in words for the log. Pure.
//
// No oddity stops a run. The log helps an administrator who misses an account in the comparison, or
// wonders what an update will do to a line. Each kind of oddity is one text with the number of the
// first line and a count, so a file full of comments does not fill the log. Names and other bytes
// of the file are not repeated.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "accountdb/account_line.h"

namespace orvs {

// Looks at the lines up to the first empty one, which counts as an oddity itself.
std::vector<std::string> odditiesOf(std::string_view text, AccountKind kind);

}  // namespace orvs
