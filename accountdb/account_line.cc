#include "accountdb/account_line.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace orvs {
namespace {

constexpr char kSeparator = ':';
constexpr std::size_t kPasswdSeparators = 6;
constexpr std::size_t kGroupSeparators = 3;

}  // namespace

bool LineReader::next(std::string_view& line) {
  if (position >= text.size())
    return false;
  const std::size_t end = std::min(text.find('\n', position), text.size());
  line = text.substr(position, end - position);
  position = std::min(end + 1, text.size());
  return true;
}

bool isMarkerLine(std::string_view line) {
  return line.starts_with('+') || line.starts_with('-');
}

bool hasNulInName(std::string_view line) {
  return line.substr(0, line.find(kSeparator)).find('\0') != std::string_view::npos;
}

std::optional<uint32_t> plainNumber(std::string_view field) {
  uint32_t value = 0;
  const char* const end = field.data() + field.size();
  const auto [behind, error] = std::from_chars(field.data(), end, value);
  if (error != std::errc() || behind != end)
    return std::nullopt;
  return value;
}

bool hasEmptyMember(std::string_view tail) {
  const std::string_view members = tail.substr(1);
  return members.starts_with(',') || members.ends_with(',') ||
         members.find(",,") != std::string_view::npos;
}

bool AccountLine::isPlain(AccountKind kind) const {
  if (!plainNumber(gid))
    return false;
  if (kind == AccountKind::Passwd)
    return plainNumber(uid).has_value();
  return tail.find(kSeparator, 1) == std::string_view::npos;
}

std::optional<AccountLine> accountIn(std::string_view line, AccountKind kind) {
  const std::size_t wanted = kind == AccountKind::Passwd ? kPasswdSeparators : kGroupSeparators;
  std::array<std::size_t, kPasswdSeparators> at = {};
  std::size_t position = 0;
  for (std::size_t i = 0; i < wanted; ++i) {
    at[i] = line.find(kSeparator, position);
    if (at[i] == std::string_view::npos)
      return std::nullopt;
    position = at[i] + 1;
  }
  const bool tooMany =
      kind == AccountKind::Passwd && line.find(kSeparator, position) != std::string_view::npos;
  if (tooMany || at[0] == 0 || isMarkerLine(line) || hasNulInName(line))
    return std::nullopt;

  const auto field = [&](std::size_t number) {
    return line.substr(at[number - 1] + 1, at[number] - at[number - 1] - 1);
  };
  AccountLine account = {line.substr(0, at[0]), line.substr(0, at[1] + 1), {}, field(2), {}};
  if (kind == AccountKind::Passwd) {
    account.uid = account.gid;
    account.gid = field(3);
  }
  account.tail = line.substr(at[kind == AccountKind::Passwd ? 3 : 2]);
  return account;
}

}  // namespace orvs
