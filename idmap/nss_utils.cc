#include "idmap/nss_utils.h"

#include <algorithm>
#include <string>

#include "services/logger.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/setting_keys.h"

namespace {

constexpr const char* kLoggerName = "nss";

orvs::StringListPtr namesOf(const char* key, const char* source) {
  return orvs::Props(false, false).getValueList(key, source);
}

bool contains(const orvs::StringList& names, const char* name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

bool ignoreGroup(const char* name) {
  if (!contains(*namesOf(orvs::PN::NSS_GROUP_IGNORE, paths::kGroupIgnoreSource), name))
    return false;
  ORVS_LOG(orvs::Logger::GetThreadPrivateLogger(kLoggerName), 1, "nss_utils",
           "Skipping orvs lookup of group %s", name);
  return true;
}

bool isIgnoredUser(const char* name) {
  return isPamIgnoreUser(name) || isPamOverrideList(name) || isNssIgnoreUser(name);
}

bool isPamIgnoreUser(const char* name) {
  const orvs::StringListPtr names = namesOf(orvs::PN::PAM_IGNORE_USERS, paths::kUserIgnoreSource);
  if (names->empty() || isPamMapUser(name) || !contains(*names, name))
    return false;
  ORVS_LOG(getLogger(kLoggerName, false), 1, "nss_utils",
           "Skipping ignored user %s because of pam ignore list", name);
  return true;
}

bool isPamOverrideList(const char* name) {
  if (!contains(*namesOf(orvs::PN::PAM_ALLOW_OVERRIDE, ""), name))
    return false;
  ORVS_LOG(orvs::Logger::GetThreadPrivateLogger(kLoggerName), 1, "nss_utils",
           "Skipping orvs lookup of override ignored user %s", name);
  return true;
}

bool isNssIgnoreUser(const char* name) {
  if (!contains(*namesOf(orvs::PN::NSS_USER_IGNORE, paths::kUserIgnoreSource), name))
    return false;
  ORVS_LOG(orvs::Logger::GetThreadPrivateLogger(kLoggerName), 1, "nss_utils",
           "Skipping orvs lookup of nss ignored user %s", name);
  return true;
}

bool isPamMapUser(const char* name) {
  return !orvs::Props(false, false).getString(std::string(orvs::PN::PAM_MAPUSER) + name).empty();
}
