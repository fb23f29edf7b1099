// One line of the group file: name, password, gid, members.
//
// A usable line has four fields or more. Members are split at commas, in the order of the line, and
// empty ones are dropped. The gid is unsigned 32-bit and is 0 when the field is no number.
// db_entry.h has the rules for all kinds of lines.
#pragma once

#include <grp.h>

#include <cstdint>
#include <list>
#include <string>

#include "accountdb/db_entry.h"

namespace orvs {

class DBGroup : public DBEntry {
 public:
  bool isMarker() const override { return marker; }
  void clear() override;
  bool parse(const std::string& line) override;
  // Four fields when `complete`, else the short form of name and gid, which parse() rejects.
  std::string format() const override;

  bool complete = false;  // a full line was parsed
  bool marker = false;
  std::string password;
  uint32_t gid = 65534;  // Required: 0 after clear(), as in DBPasswd.
  std::list<std::string> members;

 private:
  void storeMembers(std::string_view text);
};

// The line of a C library record; an empty string for null.
std::string formatRecord(const struct group* record);

}  // namespace orvs
