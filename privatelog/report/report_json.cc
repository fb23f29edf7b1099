// JsonRows of report_rows.h.

#include "privatelog/log_line.h"
#include "privatelog/report/report_rows.h"
#include "services/text.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

void putBytes(Json& row, const std::string& key, std::string_view bytes) {
  if (isUtf8(bytes))
    row[key] = bytes;
  else
    row[key + "Bytes"] = base64(bytes);
}

Json rowOf(const char* kind, const std::string& date) {
  Json row = {{"kind", kind}};
  if (!date.empty())
    putBytes(row, "date", date);
  return row;
}

void putIds(Json& row, OwnerIds oldIds, OwnerIds newIds) {
  row["old"] = {{"uid", oldIds.uid}, {"gid", oldIds.gid}};
  row["new"] = {{"uid", newIds.uid}, {"gid", newIds.gid}};
}

// ASCII alone: a user chose the path, and the line may go to a terminal.
void appendRow(std::string& out, const Json& row) {
  out += row.dump(-1, ' ', true);
  out += '\n';
}

void appendBadLine(std::string& out, const std::string& date, std::string_view line) {
  Json row = rowOf("bad", date);
  putBytes(row, "line", line);
  appendRow(out, row);
}

}  // namespace

void JsonRows::appendChange(std::string& out,
                            OwnerIds oldIds,
                            OwnerIds newIds,
                            std::string_view path) {
  Json row = rowOf("file", date);
  putBytes(row, "path", path);
  putIds(row, oldIds, newIds);
  appendRow(out, row);
}

void JsonRows::appendAcl(std::string& out, const AclRow& acl) {
  Json row = rowOf(acl.isDefault ? "default-acl" : "acl", date);
  putBytes(row, "path", acl.path);
  const auto putChanges = [&row](const char* key, const auto& ids) {
    row[key] = Json::array();
    for (const auto& [oldId, newId] : ids)
      row[key].push_back({{"old", oldId}, {"new", newId}});
  };
  putChanges("users", acl.changes.users);
  putChanges("groups", acl.changes.groups);
  appendRow(out, row);
}

void JsonRows::appendPasswdUpdate(std::string& out, std::string_view line) {
  const auto update = parsePasswdUpdateLine(line);
  if (!update)
    return appendBadLine(out, date, line);
  Json row = rowOf("passwd", date);
  putBytes(row, "name", update->name);
  putIds(row, update->oldIds, update->newIds);
  appendRow(out, row);
}

void JsonRows::appendGroupUpdate(std::string& out, std::string_view line) {
  const auto update = parseGroupUpdateLine(line);
  if (!update)
    return appendBadLine(out, date, line);
  Json row = rowOf("group", date);
  putBytes(row, "name", update->name);
  row["old"] = {{"gid", update->oldGid}};
  row["new"] = {{"gid", update->newGid}};
  appendRow(out, row);
}
