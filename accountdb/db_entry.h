// One line of an account file in memory: the base of the three kinds of entry, and what their
// parsers share.
//
// An entry reads a line with parse() and writes one with format(); all other code treats lines as
// opaque strings. Entries are values. An empty name means that the entry holds nothing. Ids are
// unsigned 32-bit. Fields are separated by ":", nothing is trimmed or unescaped, and an empty field
// is a field. A parser neither logs nor throws. Pure: no system call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvs {

class DBEntry {
 public:
  DBEntry() = default;
  DBEntry(const DBEntry&) = default;
  DBEntry(DBEntry&&) = default;
  DBEntry& operator=(const DBEntry&) = default;
  DBEntry& operator=(DBEntry&&) = default;
  virtual ~DBEntry() = default;

  virtual bool isEmpty() const { return name.empty(); }
  // Required: never overridden and never called. It keeps the order of the operations.
  virtual bool reserved() const { return false; }
  // Whether the last line parsed was a marker line: one whose name begins with "+" or "-".
  virtual bool isMarker() const { return false; }
  virtual void clear() {
    name.clear();
    hasPlainId = true;
  }

  // True when the line is a usable entry. Otherwise `name` is empty, and isMarker() tells whether
  // the line is a marker. A field that the line does not have keeps its old value.
  virtual bool parse(const std::string& line) = 0;
  // The line, without a newline; an empty string when `name` is empty.
  virtual std::string format() const = 0;

  std::string name;
  bool hasPlainId = true;  // the field of its uid, or of a group's gid, has digits only and fits

 protected:
  // Every parser calls this before it counts fields. Returns true for a marker line and empties the
  // name.
  bool takeMarker();
};

// Returns the fields of a line one by one. The line must outlive the reader.
class FieldReader {
 public:
  FieldReader(std::string_view line, char separator) : text(line), delimiter(separator) {}

  // Stores the next field; false when there is none left.
  bool next(std::string_view& field);

  // The text behind the field that next() stored last, without the separator. For the last field of
  // a line, which has no separator, it is that field itself.
  std::string_view rest() const { return text.substr(position); }

 private:
  std::string_view text;
  char delimiter;
  std::size_t position = 0;
  bool ended = false;
};

// The value of an id field, by the rules of a text stream that reads one unsigned 32-bit decimal
// into 0. Leading white space and a sign are accepted, trailing text is ignored, "-" wraps around,
// a number that is too large is 4294967295, and a text without a number is 0.
uint32_t parseUnsignedField(std::string_view text);

// The text of a field of a C library record; an empty one for null.
inline const char* textOrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace orvs
