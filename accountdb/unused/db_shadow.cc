#include "accountdb/unused/db_shadow.h"

#include <array>
#include <cstdlib>

namespace orvs {
namespace {

constexpr int kFieldCount = 9;

// The signed numbers, in the order of the line.
constexpr std::array kSignedNumbers = {&DBShadow::lastChange,   &DBShadow::minAge,
                                       &DBShadow::maxAge,       &DBShadow::warnDays,
                                       &DBShadow::inactiveDays, &DBShadow::expireDate};

ShadowNumber parseNumber(std::string_view field) {
  if (field.empty())
    return {false, -1};
  return {true, std::strtol(std::string(field).c_str(), nullptr, 10)};
}

}  // namespace

void DBShadow::clear() {
  *this = DBShadow();
}

void DBShadow::storeField(int number, std::string_view field) {
  if (number == 0)
    name = field;
  else if (number == 1)
    password = field;
  else if (number < kFieldCount - 1)
    this->*kSignedNumbers.at(static_cast<std::size_t>(number) - 2) = parseNumber(field);
  else if (number == kFieldCount - 1)
    reservedFlag = parseNumber(field);
}

bool DBShadow::parse(const std::string& line) {
  FieldReader fields(line, ':');
  std::string_view field;
  int count = 0;
  while (count <= kFieldCount && fields.next(field))
    storeField(count++, field);

  marker = takeMarker();
  if (!marker && count == kFieldCount)
    return true;
  name.clear();
  return false;
}

std::string DBShadow::format() const {
  if (name.empty())
    return {};
  std::string line = name + ':' + password;
  for (const auto number : kSignedNumbers) {
    line += ':';
    if ((this->*number).present)
      line += std::to_string((this->*number).value);
  }
  line += ':';
  if (reservedFlag.present)
    line += std::to_string(static_cast<uint64_t>(reservedFlag.value));
  return line;
}

std::string formatRecord(const struct spwd* record) {
  if (record == nullptr)
    return {};
  std::string line = textOrEmpty(record->sp_namp);
  line.append(":").append(textOrEmpty(record->sp_pwdp));
  for (const long number : {record->sp_lstchg, record->sp_min, record->sp_max, record->sp_warn,
                            record->sp_inact, record->sp_expire}) {
    line += ':';
    if (number >= 0)
      line += std::to_string(number);
  }
  return line + ':' + std::to_string(record->sp_flag);
}

}  // namespace orvs
