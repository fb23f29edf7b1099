// Gives one account other ids in the text of an account file, and loses nothing else. Pure.
//
// All other fields of the account stay as the text has them. All other lines keep their places and
// bytes, except for what a rewrite of these files has always changed: marker lines ("+", "-") move
// behind the accounts, plain numbers lose leading zeros, member lists lose empty items, and the
// last line gets a newline. These stay as they are: comments and other lines that are no account,
// ids that are no plain numbers, and groups with a fifth field (but for the gid that is to change).
// The text from the first empty line on is not looked at and comes last, unchanged.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "accountdb/account_line.h"

namespace orvs {

struct IdChange {
  AccountKind kind;
  std::string_view name;
  uint32_t uid;  // not used for a group
  uint32_t gid;
};

// The new text. Changes the first account of the name. Nothing when no account of the name stands
// ahead of the first empty line, or when an id that would change is no plain number.
std::optional<std::string> withIds(std::string_view text, const IdChange& change);

}  // namespace orvs
