// One line of an account file, and where the name and the ids stand in it.
//
// An entry (db_entry.h) holds the values of a line and writes the line anew. These views point into
// the line itself, so an update can keep every byte that it need not change. A line is an account
// here when the entry's parser accepts it and its name is neither empty nor has a NUL byte. Pure; a
// view lives as long as its text.
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

  // Whether the ids are plain numbers and a group has no fifth field. A rewrite leaves other lines
  // alone.
  bool isPlain(AccountKind kind) const;
};

// Returns the lines of a text one by one, without their newlines.
class LineReader {
 public:
  explicit LineReader(std::string_view itsText) : text(itsText) {}

  // False at the end.
  bool next(std::string_view& line);

  // The text behind the line that next() returned last.
  std::string_view rest() const { return text.substr(position); }

 private:
  std::string_view text;
  std::size_t position = 0;
};

// The account in a line. Nothing for a marker line, a comment, an empty name, or too few or too
// many fields.
std::optional<AccountLine> accountIn(std::string_view line, AccountKind kind);

bool isMarkerLine(std::string_view line);

// Whether the text before the first separator has a NUL byte.
bool hasNulInName(std::string_view line);

// The value of a field that consists of digits and fits into 32 bits.
std::optional<uint32_t> plainNumber(std::string_view field);

// Whether the member list has an empty item, as "a,,b," has. `tail` is that of a group, with its
// separator.
bool hasEmptyMember(std::string_view tail);

}  // namespace orvs
