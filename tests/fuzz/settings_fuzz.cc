// A settings file of any bytes is loaded, or refused in words that name the file; what it says can
// then be read in every way.
#include "services/exceptions.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "tests/fuzz/fuzz_input.h"

void tryInput(const std::string& text) {
  const InputFile file(text);
  orvs::Properties properties;
  try {
    properties.load(file.path());
  } catch (const ORVSException& error) {
    require(std::string(error.what()).starts_with(file.path() + ":"), "a refusal names the file");
    return;
  }
  for (const char* key : {orvs::SETTING_DOMAIN_NAME, orvs::PN::ROOT_LOGGER_NAME,
                          orvs::PN::PAM_IGNORE_USERS, "pam.mapuser.ann"}) {
    if (!properties.getString(key).starts_with("file:"))  // a path of the fuzzer's making
      require(properties.getValueList(key, "") != nullptr, "any value is a list");
  }
  const bool isHardened = properties.getBool(orvs::PN::IDSHIFT_HARDENED, true);
  require(isHardened || !properties.getString(orvs::PN::IDSHIFT_HARDENED).empty(),
          "safe if not set");
}
