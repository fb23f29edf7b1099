#include "accountdb/db_group.h"

#include "accountdb/account_line.h"

namespace orvs {
namespace {

constexpr int kFieldCount = 4;

}  // namespace

void DBGroup::clear() {
  DBEntry::clear();
  complete = false;
  marker = false;
  password.clear();
  gid = 0;
  members.clear();
}

void DBGroup::storeMembers(std::string_view text) {
  members.clear();
  FieldReader pieces(text, ',');
  std::string_view piece;
  while (pieces.next(piece)) {
    if (!piece.empty())
      members.emplace_back(piece);
  }
}

bool DBGroup::parse(const std::string& line) {
  complete = false;
  FieldReader fields(line, ':');
  std::string_view field;
  int count = 0;
  while (count < kFieldCount && fields.next(field)) {
    switch (count++) {
      case 0:
        name = field;
        break;
      case 1:
        password = field;
        break;
      case 2:
        gid = parseUnsignedField(field);
        hasPlainId = plainNumber(field).has_value();
        break;
      default:
        // Required: with a fourth colon the fourth field is lost and the members are everything
        // behind that colon. Rewritten files have always come out this way, and an undo depends on
        // reading such a line in the same way.
        storeMembers(fields.rest());
        break;
    }
  }

  marker = takeMarker();
  if (marker)
    return false;
  complete = count == kFieldCount;
  if (!complete)
    name.clear();
  return complete;
}

std::string DBGroup::format() const {
  if (name.empty())
    return {};
  const std::string id = std::to_string(gid);
  if (!complete)
    return name + ':' + id;
  std::string line = name + ':' + password + ':' + id + ':';
  const char* separator = "";
  for (const std::string& member : members) {
    line.append(separator).append(member);
    separator = ",";
  }
  return line;
}

std::string formatRecord(const struct group* record) {
  if (record == nullptr)
    return {};
  std::string line = textOrEmpty(record->gr_name);
  line.append(":").append(textOrEmpty(record->gr_passwd));
  line.append(":").append(std::to_string(record->gr_gid)).append(":");
  const char* separator = "";
  for (char** member = record->gr_mem; member != nullptr && *member != nullptr; ++member) {
    line.append(separator).append(*member);
    separator = ",";
  }
  return line;
}

}  // namespace orvs
