#include "idmap/nss_utils.h"

#include <map>

#include <gtest/gtest.h>

#include "services/properties.h"
#include "tests/support/sandbox.h"

namespace {

using Settings = std::map<std::string, std::string>;

struct FilterRow {
  Settings settings;
  const char* name;
  bool expected;
  const char* record = "";  // the end of the one log record that a hit leaves
};

class IgnoreFilters : public SandboxTest {
 protected:
  void arrange() override {
    recordLog();
    writeFile("/etc/orvantadc/user.ignore", "filed\n");
    writeFile("/etc/orvantadc/group.ignore", "filed\n");
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
      for (const std::string& record : records)
        EXPECT_TRUE(record.ends_with(row.record) &&
                    record.find(" DEBUG nss nss_utils:") != std::string::npos)
            << record;
    }
  }

  static void apply(const Settings& settings) {
    for (const char* key : {"pam.ignore.users", "pam.allow.override", "nss.user.ignore",
                            "nss.group.ignore", "pam.mapuser.ann"})
      orvs::Props(false, false).set(key, "");
    for (const auto& [key, value] : settings)
      orvs::Props(false, false).set(key, value);
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
        {{{}, "FILED", false},
         {{}, "filed", true, "Skipping ignored user filed because of pam ignore list"},
         {{{"pam.ignore.users", "ann"}, {"pam.allow.override", "ann"}}, "ann", true, pam},
         {{{"pam.allow.override", "ann"}, {"nss.user.ignore", "ann"}}, "ann", true, over},
         {{{"nss.user.ignore", "ann"}}, "ann", true, nss},
         {{{"nss.user.ignore", "Ann"}, {"pam.allow.override", "ANN"}}, "ann", false},
         {{{"nss.group.ignore", "ann"}}, "ann", false},
         // A map-user setting, in any case, lifts the first list alone.
         {{{"pam.ignore.users", "ann"}, {"pam.mapuser.ANN", "z"}}, "ann", false},
         {{{"pam.ignore.users", "ann"}, {"pam.mapuser.anna", "z"}}, "ann", true, pam},
         {{{"pam.mapuser.ann", "z"}, {"nss.user.ignore", "ann"}}, "ann", true, nss},
         {{{"pam.mapuser.ann", "z"}, {"pam.allow.override", "ann"}}, "ann", true, over}});
}
