// The text of the report: values in, lines out. No file is touched here.
//
// Each function appends to a string that the caller reuses. Four columns of ids, left-aligned, each
// as wide as the digits of the largest signed 32-bit number and followed by two blanks, then the
// path, uncut. Account lines stand between the rows without columns.
#pragma once

#include <string>
#include <string_view>

#include "entry/attribute_ids.h"
#include "entry/file_ids.h"

void appendReportTitle(std::string& out, std::string_view domain);

// Opens a section. `dateText` is the log's date line without its "!".
void appendSectionHeading(std::string& out, std::string_view dateText);

void appendChangeRow(std::string& out, OwnerIds oldIds, OwnerIds newIds, std::string_view path);

// "ACL Update(/path) user 1001 changed to 1002, group 5 changed to 6"; of a directory's default ACL
// "Default ACL Update".
void appendAclRow(std::string& out,
                  bool isDefault,
                  std::string_view path,
                  const AclChanges& changes);

// `line` is a whole line of the log; one that does not parse is shown as it is, with a word.
void appendPasswdUpdateRow(std::string& out, std::string_view line);
void appendGroupUpdateRow(std::string& out, std::string_view line);
