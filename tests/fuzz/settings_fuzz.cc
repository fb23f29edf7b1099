// A settings file of any bytes is loaded, or refused in words that name the file; what it says can
// then be read in every way.
#include <sstream>

#include "services/exceptions.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// The answers to all that the tool asks its settings, or why they cannot be had.
std::string answers(const std::string& path) {
  orvs::Properties properties;
  try {
    properties.load(path);
  } catch (const ORVSException& error) {
    require(std::string(error.what()).starts_with(path + ":"), "a refusal names the file");
    return error.what();
  }
  std::string all;
  for (const char* key : {orvs::SETTING_DOMAIN_NAME, orvs::PN::ROOT_LOGGER_NAME,
                          orvs::PN::PAM_IGNORE_USERS, "pam.mapuser.ann"}) {
    const std::string value = properties.getString(key);
    all += value + '\n';
    if (!value.starts_with("file:"))  // a path of the fuzzer's making is not opened
      all += std::to_string(properties.getValueList(key, "").get()->size());
  }
  for (const bool otherwise : {false, true})
    all += properties.getBool(orvs::PN::IDSHIFT_HARDENED, otherwise) ? 'y' : 'n';
  return all;
}

}  // namespace

void tryInput(const std::string& text) {
  const InputFile file(text);
  require(answers(file.path()) == answers(file.path()), "one file has one meaning");
}
