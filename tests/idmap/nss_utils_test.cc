#include "idmap/nss_utils.h"

#include <map>

#include <gtest/gtest.h>

#include "idmap/name_map.h"
#include "services/properties.h"
#include "tests/support/sandbox.h"

using IgnoreFilters = SandboxTest;

TEST_F(IgnoreFilters, Rows) {
  recordLog();
  writeFile("/etc/orvantadc/user.ignore", "filed\n");
  writeFile("/etc/orvantadc/group.ignore", "filed\n");
  const char* group = "ignoreGroup Skipping orvs lookup of group ";
  const char* pam = "isPamIgnoreUser Skipping ignored user ann because of pam ignore list";
  const char* over = "isPamOverrideList Skipping orvs lookup of override ignored user ";
  const char* nss = "isNssIgnoreUser Skipping orvs lookup of nss ignored user ";
  const struct {
    bool (*filter)(const char*);
    std::map<std::string, std::string> settings;
    const char* name;
    const char* record;  // the end of the log record of a hit; null for no hit
  } rows[] = {
      {ignoreGroup, {}, "filed", group},
      {ignoreGroup, {{"nss.group.ignore", "ops dev"}}, "dev", group},
      {ignoreGroup, {{"nss.group.ignore", "ops dev"}}, "filed", nullptr},
      {ignoreGroup, {{"nss.group.ignore", "Dev de devs d*"}}, "dev", nullptr},
      {isIgnoredUser, {}, "filed", "Skipping ignored user filed because of pam ignore list"},
      {isIgnoredUser, {{"pam.ignore.users", "ann"}, {"pam.allow.override", "ann"}}, "ann", pam},
      {isIgnoredUser, {{"pam.allow.override", "ann"}, {"nss.user.ignore", "ann"}}, "ann", over},
      {isIgnoredUser, {{"nss.user.ignore", "ann"}}, "ann", nss},
      {isIgnoredUser, {{"pam.allow.override", "Filed"}}, "FILED", nullptr},
      // A map-user setting, in any case of its letters, hides the user from the first list only.
      {isIgnoredUser, {{"pam.ignore.users", "ann"}, {"pam.mapuser.ANN", "z"}}, "ann", nullptr},
      {isIgnoredUser, {{"pam.ignore.users", "ann"}, {"pam.mapuser.anna", "z"}}, "ann", pam},
      {isIgnoredUser, {{"pam.mapuser.ann", "z"}, {"nss.user.ignore", "ann"}}, "ann", nss},
      {isIgnoredUser, {{"pam.mapuser.ann", "z"}, {"pam.allow.override", "ann"}}, "ann", over}};
  for (const auto& row : rows) {
    for (const char* key : {"pam.ignore.users", "pam.allow.override", "nss.user.ignore",
                            "nss.group.ignore", "pam.mapuser.ann"})
      orvs::Props(false, false).set(key, "");
    for (const auto& [key, value] : row.settings)
      orvs::Props(false, false).set(key, value);
    const size_t before = readLogRecords().size();
    EXPECT_EQ(row.filter(row.name), row.record != nullptr) << row.name;
    std::vector<std::string> records = readLogRecords();
    ASSERT_EQ(records.size() - before, row.record != nullptr ? 1u : 0u) << row.name;
    if (row.record != nullptr) {
      EXPECT_TRUE(contains(records.back(), row.record)) << records.back();
      EXPECT_TRUE(contains(records.back(), " DEBUG nss nss_utils:")) << records.back();
    }
  }
}

TEST_F(IgnoreFilters, ANameMapHasTheFirstTwoWordsOfEachWholeLine) {
  using namespace std::string_literals;
  writeFile("/etc/map",
            "ann  one\nbob\tb\v\fmore\n one\n#c d\n\n \r\nx\0y z\nann two\r\nlast line"s);
  NameMap map;
  EXPECT_EQ(LoadNameMap("/etc/map", map), 0);
  EXPECT_EQ(map, (NameMap{{"ann", "two"}, {"bob", "b"}, {"#c", "d"}, {"x\0y"s, "z"}}));
}
