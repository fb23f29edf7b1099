// Any bytes in the text files that root writes. Each reader accepts the file, or refuses it in
// words that name the file.
#include <exception>

#include "idmap/name_map.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "tests/fuzz/fuzz_input.h"
#include "zonagent/zone_table.h"

namespace {

template <class Read>
bool isAccepted(const std::string& file, const Read& read) {
  try {
    read();
  } catch (const std::exception& error) {
    require(std::string(error.what()).starts_with(file + ":"), "a refusal names the file");
    return false;
  }
  return true;
}

void readSettings(const std::string& path) {
  orvs::Properties properties;
  if (!isAccepted(path, [&] { properties.load(path); }))
    return;
  for (const char* key : {orvs::SETTING_DOMAIN_NAME, orvs::PN::ROOT_LOGGER_NAME,
                          orvs::PN::PAM_IGNORE_USERS, "pam.mapuser.ann"}) {
    if (!properties.getString(key).starts_with("file:"))  // the fuzzer may name any file
      require(properties.getValueList(key, "") != nullptr, "any value is a list");
  }
  const bool isHardened = properties.getBool(orvs::PN::IDSHIFT_HARDENED, true);
  require(isHardened || !properties.getString(orvs::PN::IDSHIFT_HARDENED).empty(),
          "safe if not set");
}

void readZone(const std::string& text) {
  zonagent::ZoneTable users, groups;
  users.readUsers(zonagent::inOnePiece("ayla:x:70001:70000:::\n"), "f");
  isAccepted("f", [&] { users.readAliases(zonagent::inOnePiece(text), "f"); });
  isAccepted("f", [&] { users.readUsers(zonagent::inOnePiece(text), "f"); });
  isAccepted("f", [&] { groups.readGroups(zonagent::inOnePiece(text), "f"); });
}

}  // namespace

void tryInput(const std::string& text) {
  const InputFile file(text);
  readSettings(file.path());
  readZone(text);
  NameMap map;
  require(LoadNameMap(file.path().c_str(), map) == 0, "any file is a name map");
  const auto names = orvs::Properties().getValueList("list", "file:" + file.path());
  for (const std::string& name : *names)
    require(!name.empty() && name.find('\n') == std::string::npos, "a name is on one line");
}
