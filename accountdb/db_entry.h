// One line of an account file in memory: the base of the three kinds of entry, and what their
// parsers share.
//
// An entry reads itself with parse() and writes itself with format(); everybody else handles a line
// as an opaque string. Entries are values. An empty name means that the entry holds nothing. Ids
// are unsigned 32-bit. Fields are separated by ":", nothing is trimmed or unescaped, and an empty
// field is a field. Parsing reports by its result alone: it neither logs nor throws. Pure: no
// system call.
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
  // Required: never overridden and never called; it keeps the order of the operations.
  virtual bool reserved() const { return false; }
  // True when the last line parsed was a marker line: its name began with "+" or "-".
  virtual bool isMarker() const { return false; }
  virtual void clear() {
    name.clear();
    hasPlainId = true;
  }

  // True when the line yields a usable entry. On false `name` is empty, and isMarker() tells why. A
  // field whose text is absent from the line keeps its old value.
  virtual bool parse(const std::string& line) = 0;
  // The line, without a newline; an empty string when `name` is empty.
  virtual std::string format() const = 0;

  std::string name;
  bool hasPlainId = true;  // the field of its uid, or of a group's gid, has digits only and fits

 protected:
  // The test that every parser makes before it counts fields. Empties the name of a marker line.
  bool takeMarker();
};

// Hands out the fields of a line one by one. The line must outlive the reader.
class FieldReader {
 public:
  FieldReader(std::string_view line, char separator) : text(line), delimiter(separator) {}

  // Stores the next field; false when the last one has been handed out.
  bool next(std::string_view& field);

  // Everything behind the separator of the field last handed out. The last field of a line has no
  // separator: then this is that field itself.
  std::string_view rest() const { return text.substr(position); }

 private:
  std::string_view text;
  char delimiter;
  std::size_t position = 0;
  bool ended = false;
};

// The value of an id field, by the rules of a text stream that extracts one unsigned 32-bit decimal
// into 0: leading white space and a sign are taken, trailing text is ignored, "-" wraps around,
// what does not fit is 4294967295, and what is no number is 0.
uint32_t parseUnsignedField(std::string_view text);

// The text of a C library record's field, which may be null.
inline const char* textOrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace orvs
