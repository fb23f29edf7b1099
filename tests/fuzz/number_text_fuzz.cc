// The texts that are read as numbers: the id range of an option, and the owner in a lock file.
#include <algorithm>
#include <sstream>

#include "accountdb/lock_file.h"
#include "driver/command_line.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// The low 32 bits of a decimal that stops growing at 2^63-1.
uint32_t numberOf(const std::string& digits) {
  unsigned __int128 sum = 0;
  for (const char c : digits)
    sum = std::min<unsigned __int128>(sum * 10 + static_cast<unsigned>(c - '0'), INT64_MAX);
  return static_cast<uint32_t>(sum);
}

bool areDigits(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

void checkRange(const std::string& text) {
  const size_t dash = text.find('-');
  const std::string low = text.substr(0, dash);
  const std::string high = dash == std::string::npos ? "" : text.substr(dash + 1);
  const bool isPair = !low.empty() && !high.empty();
  const uint32_t top = isPair ? numberOf(high) : UINT32_MAX;
  const bool isValid = areDigits(low) && areDigits(high) && (dash == std::string::npos || isPair) &&
                       numberOf(low) <= top;
  const auto range = parseIdRange(text.c_str());
  require(range.has_value() == isValid, "valid or not");
  require(!range || (range->low == numberOf(low) && range->high == top), "from there to there");
}

void checkOwner(const std::string& text) {
  long number = 0;
  std::istringstream(text) >> number;
  const auto owner = orvs::lockOwner(text);
  require(owner.has_value() == (number != 0), "zero is nobody");
  require(!owner || *owner == static_cast<pid_t>(number), "the number in front");
}

}  // namespace

void tryInput(const std::string& text) {
  checkRange(text.substr(0, text.find('\0')));
  checkOwner(text);
}
