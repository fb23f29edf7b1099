// Which values the settings file may have, and which keys are known. Pure.
//
// A rule refuses a value that would otherwise silently mean something else: a value with a comment
// behind it, a word that is no boolean, bytes that cannot be sent to the agent. The older booleans
// have no such rule: for them an unknown word means the default. Only keys with the prefixes of
// these two programs can be unknown, because other programs may share the file.
#pragma once

#include <string>
#include <string_view>

namespace orvs {

// What is wrong with the setting, or an empty string.
std::string settingFault(std::string_view key, const std::string& value);

// True for a key that has a prefix of these programs and that neither of them reads: probably a
// typing mistake.
bool isUnknownSetting(std::string_view key);

}  // namespace orvs
