// A line of an account file as it stands there: where its account's name and ids are.
//
// The entries (db_entry.h) hold the values of a line and write it anew. These views point into the
// line, so that an update can leave every byte alone that it need not change. Which lines are
// accounts is what the entries' parsers say, but for a name with a NUL byte, which no account has.
// Pure; a view lives as long as its text.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace orvs {

enum class AccountKind { Passwd, Group };

struct AccountLine {
  std::string_view name;  // not empty
  std::string_view head;  // up to the first id, its separator included
  std::string_view uid;   // empty in a group
  std::string_view gid;
  std::string_view tail;  // from the separator behind the gid on

  // The ids are plain numbers and a group has no fifth field. Any other line is kept as it is.
  bool isPlain(AccountKind kind) const;
};

// Hands out the lines of a text, without their newlines.
class LineReader {
 public:
  explicit LineReader(std::string_view itsText) : text(itsText) {}

  // False at the end.
  bool next(std::string_view& line);

  // What has not been handed out yet.
  std::string_view rest() const { return text.substr(position); }

 private:
  std::string_view text;
  std::size_t position = 0;
};

// Nothing when the line is no account: a marker line, a comment, too few or too many fields.
std::optional<AccountLine> accountIn(std::string_view line, AccountKind kind);

bool isMarkerLine(std::string_view line);

// Whether the name, which ends at the first separator, has a NUL byte.
bool hasNulInName(std::string_view line);

// The value of a field that has digits only and fits.
std::optional<uint32_t> plainNumber(std::string_view field);

// Whether the member list in `tail`, a group's, names nobody at some place, as in "a,,b,".
bool hasEmptyMember(std::string_view tail);

}  // namespace orvs
