// Formats the lines of the report. Pure: no file is touched.
//
// Each function appends to a string that the caller reuses. A row has four left-aligned columns of
// ids, each as wide as the digits of the largest signed 32-bit number and followed by two blanks,
// then the whole path. Lines about accounts and ACLs stand between the rows and have no columns.
#pragma once

#include <string>
#include <string_view>

#include "entry/attribute_ids.h"
#include "entry/file_ids.h"

void appendReportTitle(std::string& out, std::string_view domain);

// Begins a section. `dateText` is the log's date line without its "!".
void appendSectionHeading(std::string& out, std::string_view dateText);

void appendChangeRow(std::string& out, OwnerIds oldIds, OwnerIds newIds, std::string_view path);

struct AclRow {
  bool isDefault;  // a directory's default ACL
  std::string_view path;
  AclChanges changes;
};

// "ACL Update(/path) user 1001 changed to 1002, group 5 changed to 6"; for a default ACL it begins
// with "Default ACL Update".
void appendAclRow(std::string& out, const AclRow& row);

// `line` is a whole line of the log; one that does not parse is shown unchanged behind "bad line".
void appendPasswdUpdateRow(std::string& out, std::string_view line);
void appendGroupUpdateRow(std::string& out, std::string_view line);

// The same rows as JSON: one object a line, in ASCII. A text that is not valid UTF-8 goes into a
// field such as "pathBytes", in base64. Rows in front of the first section have no "date".
class JsonRows {
 public:
  void beginSection(std::string_view dateText) { date = dateText; }
  void appendChange(std::string& out, OwnerIds oldIds, OwnerIds newIds, std::string_view path);
  void appendAcl(std::string& out, const AclRow& acl);
  void appendPasswdUpdate(std::string& out, std::string_view line);
  void appendGroupUpdate(std::string& out, std::string_view line);

 private:
  std::string date;  // of the present section
};
