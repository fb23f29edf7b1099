#include "services/setting_rules.h"

#include <strings.h>

#include <algorithm>
#include <array>

#include "services/agent/zone_wire.h"
#include "services/setting_keys.h"
#include "services/text.h"

namespace orvs {
namespace {

// Booleans that take only the six words of isBooleanWord().
constexpr std::array kStrictBooleans = {PN::IDSHIFT_HARDENED, PN::IDSHIFT_STRICT,
                                        PN::IDSHIFT_CONVERT_ACLS,
                                        PN::IDSHIFT_PRESERVE_CAPABILITIES};

constexpr std::array kKnownKeys = {PN::IDSHIFT_PRESERVE_EXECUTION_BITS,
                                   PN::IDSHIFT_PRESERVE_CAPABILITIES,
                                   PN::IDSHIFT_CONVERT_ACLS,
                                   PN::IDSHIFT_HARDENED,
                                   PN::IDSHIFT_STRICT,
                                   PN::IDSHIFT_PROGRESS,
                                   PN::IDSHIFT_READ_AHEAD,
                                   PN::AGENT_SERVICE,
                                   PN::ZONAGENT_BACKEND,
                                   PN::ZONAGENT_ONLINE_CHECK,
                                   PN::ZONAGENT_ONLINE_SECONDS};

constexpr std::array kProgressWords = {"auto", "never"};

constexpr std::array kOwnPrefixes = {"idshift.", "zonagent.", "agent."};

bool equalWithoutCase(std::string_view a, const char* b) {
  return strcasecmp(std::string(a).c_str(), b) == 0;
}

template <class Keys>
bool isOneOf(const Keys& keys, std::string_view key) {
  return std::any_of(keys.begin(), keys.end(),
                     [key](const char* known) { return equalWithoutCase(key, known); });
}

bool isBooleanWord(const std::string& value) {
  constexpr std::array kWords = {"true", "yes", "1", "false", "no", "0"};
  return isOneOf(kWords, value);
}

// "auto", "off", or a number of helpers up to 64.
bool isReadAhead(const std::string& value) {
  constexpr std::array kWords = {"auto", "off"};
  const bool isNumber = !value.empty() && value.size() <= 2 &&
                        std::all_of(value.begin(), value.end(),
                                    [](char digit) { return digit >= '0' && digit <= '9'; });
  return isOneOf(kWords, value) || (isNumber && std::stoi(value) <= 64);
}

bool hasCommentBehindValue(const std::string& value) {
  return value.find(" #") != value.npos || value.find("\t#") != value.npos;
}

}  // namespace

std::string settingFault(std::string_view key, const std::string& value) {
  const std::string name(key);
  if (hasCommentBehindValue(value))
    return "the value of " + name +
           " holds a \"#\" behind a blank; a comment needs a line of its own";
  if (isOneOf(kStrictBooleans, key) && !isBooleanWord(value))
    return "the value of " + name + " is none of true, yes, 1, false, no, 0";
  if (equalWithoutCase(key, PN::IDSHIFT_PROGRESS) && !isOneOf(kProgressWords, value))
    return "the value of " + name + " is neither auto nor never";
  if (equalWithoutCase(key, PN::IDSHIFT_READ_AHEAD) && !isReadAhead(value))
    return "the value of " + name + " is neither auto nor off nor a number up to 64";
  if (equalWithoutCase(key, PN::AGENT_SERVICE) && !value.empty() &&
      wire::nameForm(value) != wire::NameForm::Good)
    return "the value of " + name + " is not UTF-8 or has a control character";
  return {};
}

bool isUnknownSetting(std::string_view key) {
  const std::string lowered = lower(std::string(key));
  return std::any_of(kOwnPrefixes.begin(), kOwnPrefixes.end(),
                     [&](const char* prefix) { return lowered.starts_with(prefix); }) &&
         !isOneOf(kKnownKeys, key);
}

}  // namespace orvs
