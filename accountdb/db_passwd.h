// One line of the passwd file: name, password, uid, gid, gecos, home directory, shell.
//
// A usable line has exactly seven fields; its name may be empty. Ids are unsigned 32-bit. An id
// that is no number is 0 and does not make the line unusable. db_entry.h has the rules for all
// kinds of lines.
#pragma once

#include <pwd.h>

#include <cstdint>
#include <string>

#include "accountdb/db_entry.h"

namespace orvs {

class DBPasswd : public DBEntry {
 public:
  bool isMarker() const override { return marker; }
  void clear() override;
  bool parse(const std::string& line) override;
  // Seven fields when `complete`, else the short form of name, uid and gid, which parse() rejects.
  std::string format() const override;

  bool complete = false;  // a line of seven fields was parsed
  bool marker = false;
  std::string password;
  // Required: 65534 in a new entry, 0 after clear(). A lookup that misses hands out a cleared
  // entry, and its ids are 0.
  uint32_t uid = 65534;
  uint32_t gid = 65534;
  std::string gecos;
  std::string dir;
  std::string shell;

 private:
  void storeField(int number, std::string_view field);
};

// The line of a C library record; an empty string for null.
std::string formatRecord(const struct passwd* record);

}  // namespace orvs
