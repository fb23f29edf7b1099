// The account record that a killed run had prepared but not made visible.
//
// An account's record is written after its update. A kill between the two would leave a changed
// account that no undo knows of, so the record is laid down ahead of the update behind a NUL, where
// no reader sees it, and the NUL is replaced by the record's first byte when the update has
// succeeded. The next run that opens the log finds what was prepared and looks at the account: when
// it bears the new ids, the update went through and the record is made good.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct PreparedAccount {
  std::string text;  // what is to be appended: the section's date line, if it was prepared too, and
                     // the record, line feeds included
  std::string line;  // the record without its line feed
};

// What stands behind the first NUL of the log, with the first byte that was held back; nothing when
// no record was prepared there.
std::optional<PreparedAccount> parsePreparedAccount(std::string_view behindNul);

// Whether the account that `line` names bears the line's new ids in its account file now.
bool isAccountUpdated(std::string_view line);
