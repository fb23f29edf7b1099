#include "services/properties.h"

#include <gtest/gtest.h>

#include "services/exceptions.h"
#include "tests/support/sandbox.h"

using orvs::Properties;

using SettingsFile = SandboxTest;

TEST_F(SettingsFile, KeysComeFromSectionsAndCompareWithoutCase) {
  writeFile("/etc/x", "; c\n# d\nDomain.Name = corp \n\n[log]\nlevel=ERROR\nfile.path = /var/x\n");
  Properties properties;
  properties.load("/etc/x");
  EXPECT_EQ(properties.getString("domain.name"), "corp");
  EXPECT_EQ(properties.getString("LOG.LEVEL"), "ERROR");
  EXPECT_EQ(properties.getString("log.file.path"), "/var/x");
}

TEST_F(SettingsFile, BadFilesAreNamedWithTheirLine) {
  const std::pair<const char*, std::string> rows[] = {
      {"a = 1", ""},
      {"a = 1\nno equals sign\n", "/etc/x:2: '=' character not found in line"},
      {"# first\nLog.Level = 1\n\n[log]\nlevel = 2\n", "/etc/x:5: duplicate key log.level"},
      {"a = 1\n\nA = 2\n", "/etc/x:3: duplicate key A"}};
  for (const auto& [text, expected] : rows) {
    writeFile("/etc/x", text);
    std::string failure;
    try {
      Properties().load("/etc/x");
    } catch (const ORVSException& error) {
      failure = error.what();
    }
    EXPECT_EQ(failure, expected) << text;
  }
  EXPECT_NO_THROW(Properties().load("/nonexistent/settings"));
  EXPECT_THROW(Properties().load("/tmp"), ORVSException);
}

TEST(Properties, Booleans) {
  for (const bool otherwise : {true, false}) {
    const std::pair<const char*, bool> rows[] = {
        {"true", true}, {"YES", true},   {"1", true},       {"False", false}, {"no", false},
        {"0", false},   {"", otherwise}, {"on", otherwise}, {"2", otherwise}};
    for (const auto& [value, expected] : rows) {
      Properties properties;
      properties.set("Key", value);
      EXPECT_EQ(properties.getBool("kEY", otherwise), expected) << value;
    }
  }
}
