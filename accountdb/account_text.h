// The text of an account file with other ids for one account, and nothing lost.
//
// The account keeps every other field that the text has for it, and every other line its place and
// its bytes, but for what a rewrite has always done: marker lines ("+", "-") move behind the
// accounts, numbers lose leading zeros, member lists their empty items, and the last line gets its
// newline. Lines that are no account (comments, lines with too few fields), ids that are no plain
// numbers and groups with a fifth field stay as they are. From the first empty line on nothing is
// looked at; it comes back at the very end, unchanged. Pure.
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
  uint32_t uid;  // of no meaning for a group
  uint32_t gid;
};

// Nothing when no account ahead of the first empty line has the name, or when an id that would have
// to change is no plain number. The first account of the name is the one that changes.
std::optional<std::string> withIds(std::string_view text, const IdChange& change);

}  // namespace orvs
