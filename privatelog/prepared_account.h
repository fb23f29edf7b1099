// The account record that a killed run of an older release prepared but did not make visible.
//
// An account's record follows its update, and a kill between the two would leave a changed account
// without a record. This release covers that with a plan (account_plan.h). Older releases wrote the
// record before the update, behind a NUL, where no reader sees it, and put its first byte in place
// of the NUL after the update. The next run that opens the log looks for such a record and at its
// account: when the account has the new ids the update was made, and the record is completed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct PreparedAccount {
  std::string text;  // to append: the section's date line if it was prepared too, then the record
  std::string line;  // the record without its line feed
};

// Parses the text behind the first NUL of the log and restores its missing first byte. Nothing when
// no record was prepared there.
std::optional<PreparedAccount> parsePreparedAccount(std::string_view behindNul);

// Whether the account in `line` has the line's new ids in its account file now.
bool isAccountUpdated(std::string_view line);
