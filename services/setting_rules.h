// What may stand in the settings file beyond its grammar: the rules for values, and which keys are
// known.
//
// A rule refuses what would otherwise be taken for something else without a word: a comment behind
// a value, a boolean that is none, bytes that cannot be sent to the agent. Established booleans
// keep their rule: a word that is none means the default. Keys are known by the prefixes of these
// two programs alone, because other programs may share the file. Pure.
#pragma once

#include <string>
#include <string_view>

namespace orvs {

// What is wrong with the setting, or an empty string.
std::string settingFault(std::string_view key, const std::string& value);

// True for a key with a prefix of these programs that neither of them reads: a slip of the pen.
bool isUnknownSetting(std::string_view key);

}  // namespace orvs
