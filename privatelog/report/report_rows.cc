#include "privatelog/report/report_rows.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "privatelog/log_line.h"

namespace {

constexpr size_t kColumnWidth = std::numeric_limits<int>::digits10 + 1;
constexpr std::string_view kSeparator = "  ";
constexpr std::string_view kRule = "----------";
static_assert(kRule.size() == kColumnWidth);

void appendColumn(std::string& out, std::string_view text) {
  out += text;
  out.append(kColumnWidth - std::min(kColumnWidth, text.size()), ' ');
  out += kSeparator;
}

class Digits {
 public:
  explicit Digits(uint32_t id) : end(std::to_chars(text, text + sizeof text, id).ptr) {}
  std::string_view view() const { return {text, static_cast<size_t>(end - text)}; }

 private:
  char text[std::numeric_limits<uint32_t>::digits10 + 1] = {};
  const char* end;
};

void appendId(std::string& out, uint32_t id) {
  out += Digits(id).view();
}

void appendIdPair(std::string& out, OwnerIds ids) {
  appendId(out, ids.uid);
  out += ',';
  appendId(out, ids.gid);
}

}  // namespace

void appendReportTitle(std::string& out, std::string_view domain) {
  out += "idshift report - domain ";
  out += domain;
  out += '\n';
}

void appendSectionHeading(std::string& out, std::string_view dateText) {
  out += "Date: ";
  out += dateText;
  out += '\n';
  for (const char* head : {"Orig UID", "New UID", "Orig GID", "New GID"})
    appendColumn(out, head);
  out += "File\n";
  for (int column = 0; column < 4; ++column)
    appendColumn(out, kRule);
  out += kRule;
  out += '\n';
}

void appendChangeRow(std::string& out, OwnerIds oldIds, OwnerIds newIds, std::string_view path) {
  for (const uint32_t id : {oldIds.uid, newIds.uid, oldIds.gid, newIds.gid})
    appendColumn(out, Digits(id).view());
  out += path;
  out += '\n';
}

void appendAclRow(std::string& out, const AclRow& row) {
  out += row.isDefault ? "Default ACL Update(" : "ACL Update(";
  out += row.path;
  const char* separator = ") ";
  for (const auto& [kind, ids] :
       {std::pair("user ", &row.changes.users), {"group ", &row.changes.groups}}) {
    for (const auto& [oldId, newId] : *ids) {
      out += separator;
      out += kind;
      appendId(out, oldId);
      out += " changed to ";
      appendId(out, newId);
      separator = ", ";
    }
  }
  out += '\n';
}

void appendPasswdUpdateRow(std::string& out, std::string_view line) {
  const auto update = parsePasswdUpdateLine(line);
  if (update) {
    out += "Passwd Update(";
    out += update->name;
    out += ") uid/gid (";
    appendIdPair(out, update->oldIds);
    out += ") changed to (";
    appendIdPair(out, update->newIds);
    out += ")\n";
    return;
  }
  out += "Passwd Update bad line: ";
  out += line;
  out += '\n';
}

void appendGroupUpdateRow(std::string& out, std::string_view line) {
  const auto update = parseGroupUpdateLine(line);
  if (update) {
    out += "Group Update(";
    out += update->name;
    out += ") gid (";
    appendId(out, update->oldGid);
    out += ") changed to (";
    appendId(out, update->newGid);
    out += ")\n";
    return;
  }
  out += "Group Update bad line: ";
  out += line;
  out += '\n';
}
