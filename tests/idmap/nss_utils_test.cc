#include "idmap/nss_utils.h"

#include <map>

#include <gtest/gtest.h>

#include "services/properties.h"
#include "services/setting_keys.h"
#include "tests/support/sandbox.h"

namespace {

using Settings = std::map<std::string, std::string>;

constexpr const char* kUserFile = "/etc/orvantadc/user.ignore";
constexpr const char* kGroupFile = "/etc/orvantadc/group.ignore";

struct FilterRow {
  Settings settings;
  const char* name;
  bool expected;
  const char* record = nullptr;  // the end of the one log record that a hit leaves
};

class IgnoreFilters : public SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    if (IsSkipped())
      return;
    recordLog();
    writeFile(kUserFile, "# local service accounts\nfiled\n\nFILED2\n");
    writeFile(kGroupFile, "filed\n");
  }

  // Checks the answer and the record of each row, with these settings and no others.
  static void check(bool (*filter)(const char*), const std::vector<FilterRow>& rows) {
    for (const FilterRow& row : rows) {
      apply(row.settings);
      const size_t before = readLogRecords().size();
      EXPECT_EQ(filter(row.name), row.expected) << row.name;
      std::vector<std::string> records = readLogRecords();
      records.erase(records.begin(), records.begin() + static_cast<ptrdiff_t>(before));
      ASSERT_EQ(records.size(), row.expected ? 1u : 0u) << row.name;
      EXPECT_TRUE(row.record == nullptr || isRecord(records[0], row.record)) << records[0];
    }
  }

  static void apply(const Settings& settings) {
    orvs::Properties& properties = orvs::Props(false, false);
    for (const char* key :
         {orvs::PN::PAM_IGNORE_USERS, orvs::PN::PAM_ALLOW_OVERRIDE, orvs::PN::NSS_USER_IGNORE,
          orvs::PN::NSS_GROUP_IGNORE, "pam.mapuser.ann"})
      properties.set(key, "");
    for (const auto& [key, value] : settings)
      properties.set(key, value);
  }

  static bool isRecord(const std::string& record, const char* end) {
    return record.ends_with(end) && record.find(" DEBUG nss nss_utils:") != std::string::npos;
  }
};

}  // namespace

TEST_F(IgnoreFilters, Groups) {
  const char* record = "ignoreGroup Skipping orvs lookup of group dev";
  check(ignoreGroup, {{{}, "dev", false},
                      {{}, "filed", true, "ignoreGroup Skipping orvs lookup of group filed"},
                      {{{"nss.group.ignore", "ops dev"}}, "dev", true, record},
                      {{{"nss.group.ignore", "ops dev"}}, "filed", false},
                      {{{"nss.group.ignore", "Dev de devs d*"}}, "dev", false},
                      {{{"nss.user.ignore", "dev"}}, "dev", false}});
}

TEST_F(IgnoreFilters, Users) {
  const char* pam = "isPamIgnoreUser Skipping ignored user ann because of pam ignore list";
  const char* over = "isPamOverrideList Skipping orvs lookup of override ignored user ann";
  const char* nss = "isNssIgnoreUser Skipping orvs lookup of nss ignored user ann";
  check(isIgnoredUser,
        {{{}, "ann", false},
         {{}, "FILED", false},
         {{}, "filed", true, "Skipping ignored user filed because of pam ignore list"},
         {{{"pam.ignore.users", "ann"}, {"pam.allow.override", "ann"}}, "ann", true, pam},
         {{{"pam.allow.override", "ann"}, {"nss.user.ignore", "ann"}}, "ann", true, over},
         {{{"nss.user.ignore", "ann"}}, "ann", true, nss},
         {{{"nss.user.ignore", "Ann"}, {"pam.allow.override", "ANN"}}, "ann", false},
         {{{"nss.group.ignore", "ann"}}, "ann", false}});
}

TEST_F(IgnoreFilters, AMapUserSettingLiftsThePamListAlone) {
  const char* nss = "Skipping orvs lookup of nss ignored user ann";
  const char* over = "Skipping orvs lookup of override ignored user ann";
  check(isIgnoredUser,
        {{{{"pam.ignore.users", "ann"}, {"pam.mapuser.ANN", "z"}}, "ann", false},
         {{{"pam.ignore.users", "ann"}, {"pam.mapuser.ann", ""}}, "ann", true},
         {{{"pam.ignore.users", "ann"}, {"pam.mapuser.anna", "z"}}, "ann", true},
         {{{"pam.mapuser.ann", "z"}, {"nss.user.ignore", "ann"}}, "ann", true, nss},
         {{{"pam.mapuser.ann", "z"}, {"pam.allow.override", "ann"}}, "ann", true, over}});
}
