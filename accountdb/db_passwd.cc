#include "accountdb/db_passwd.h"

#include "accountdb/account_line.h"

namespace orvs {
namespace {

constexpr int kFieldCount = 7;

}  // namespace

void DBPasswd::clear() {
  DBEntry::clear();
  complete = false;
  marker = false;
  password.clear();
  uid = 0;
  gid = 0;
  gecos.clear();
  dir.clear();
  shell.clear();
}

void DBPasswd::storeField(int number, std::string_view field) {
  switch (number) {
    case 0:
      name = field;
      break;
    case 1:
      password = field;
      break;
    case 2:
      uid = parseUnsignedField(field);
      hasPlainId = plainNumber(field).has_value();
      break;
    case 3:
      gid = parseUnsignedField(field);
      break;
    case 4:
      gecos = field;
      break;
    case 5:
      dir = field;
      break;
    case 6:
      shell = field;
      break;
    default:  // one field too many: counted, not kept
      break;
  }
}

bool DBPasswd::parse(const std::string& line) {
  complete = false;
  FieldReader fields(line, ':');
  std::string_view field;
  int count = 0;
  while (count <= kFieldCount && fields.next(field))
    storeField(count++, field);

  marker = takeMarker();
  if (marker)
    return false;
  complete = count == kFieldCount;
  if (!complete)
    name.clear();
  return complete;
}

std::string DBPasswd::format() const {
  if (name.empty())
    return {};
  const std::string ids = std::to_string(uid) + ':' + std::to_string(gid);
  if (!complete)
    return name + ':' + ids;
  return name + ':' + password + ':' + ids + ':' + gecos + ':' + dir + ':' + shell;
}

std::string formatRecord(const struct passwd* record) {
  if (record == nullptr)
    return {};
  std::string line = textOrEmpty(record->pw_name);
  line.append(":").append(textOrEmpty(record->pw_passwd));
  line.append(":").append(std::to_string(record->pw_uid));
  line.append(":").append(std::to_string(record->pw_gid));
  line.append(":").append(textOrEmpty(record->pw_gecos));
  line.append(":").append(textOrEmpty(record->pw_dir));
  line.append(":").append(textOrEmpty(record->pw_shell));
  return line;
}

}  // namespace orvs
