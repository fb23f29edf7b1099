// One line of the shadow file: name, password and seven numbers, each of which may be absent.
//
// A usable line has exactly nine fields. Numbers are signed 64-bit; the last one is written
// unsigned. A field with any text counts as present: its value is the number at the start of the
// text, or 0. Numbers are written in plain decimal. db_entry.h has the rules for all kinds of
// lines.
#pragma once

#include <shadow.h>

#include <cstdint>
#include <string>

#include "accountdb/db_entry.h"

namespace orvs {

// The text behind the name in the line of a user without settings of password ageing.
inline constexpr const char* kDefaultShadowTail = ":*:::::::";

struct ShadowNumber {
  bool present = false;
  int64_t value = 0;  // -1 after an empty field was parsed
};

class DBShadow : public DBEntry {
 public:
  bool isMarker() const override { return marker; }
  void clear() override;
  bool parse(const std::string& line) override;
  std::string format() const override;

  bool marker = false;
  std::string password;
  ShadowNumber lastChange;
  ShadowNumber minAge;
  ShadowNumber maxAge;
  ShadowNumber warnDays;
  ShadowNumber inactiveDays;
  ShadowNumber expireDate;
  ShadowNumber reservedFlag;

 private:
  void storeField(int number, std::string_view field);
};

// The line of a C library record; an empty string for null. A negative number becomes an empty
// field; the last field is always written.
std::string formatRecord(const struct spwd* record);

}  // namespace orvs
