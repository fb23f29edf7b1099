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

struct AclRow {
  bool isDefault;  // a directory's default ACL
  std::string_view path;
  AclChanges changes;
};

// "ACL Update(/path) user 1001 changed to 1002, group 5 changed to 6"; of a directory's default ACL
// "Default ACL Update".
void appendAclRow(std::string& out, const AclRow& row);

// `line` is a whole line of the log; one that does not parse is shown as it is, with a word.
void appendPasswdUpdateRow(std::string& out, std::string_view line);
void appendGroupUpdateRow(std::string& out, std::string_view line);

// The same rows as JSON: one object on a line of its own, in ASCII. Bytes that are no UTF-8 stand
// as "pathBytes" and so on, in base64. `dateText` is empty in front of the first section.
class JsonRows {
 public:
  void beginSection(std::string_view dateText) { date = dateText; }
  void appendChange(std::string& out, OwnerIds oldIds, OwnerIds newIds, std::string_view path);
  void appendAcl(std::string& out, const AclRow& row);
  void appendPasswdUpdate(std::string& out, std::string_view line);
  void appendGroupUpdate(std::string& out, std::string_view line);

 private:
  std::string date;  // of the section
};
