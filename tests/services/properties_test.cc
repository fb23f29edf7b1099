#include "services/properties.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "services/exceptions.h"

using orvs::Properties;
using orvs::StringList;

namespace {

class TempFile {
 public:
  explicit TempFile(const std::string& text) {
    const int fd = ::mkstemp(name);
    std::ofstream(name) << text;
    ::close(fd);
  }
  ~TempFile() { std::filesystem::remove(name); }
  const char* path() const { return name; }

 private:
  char name[32] = "/tmp/settings-test.XXXXXX";
};

std::string failureOf(const std::string& text) {
  const TempFile file(text);
  Properties properties;
  try {
    properties.load(file.path());
  } catch (const ORVSException& error) {
    return std::string(error.what()).substr(std::string(file.path()).size());
  }
  return "loaded";
}

}  // namespace

TEST(Properties, KeysComeFromSectionsAndCompareWithoutCase) {
  const TempFile file(
      "; a comment\n# another\nDomain.Name = corp \n\n[log]\nlevel=ERROR\nfile.path = /var/x\n");
  Properties properties;
  properties.load(file.path());
  EXPECT_EQ(properties.getString("domain.name"), "corp");
  EXPECT_EQ(properties.getString("LOG.LEVEL"), "ERROR");
  EXPECT_EQ(properties.getString("log.file.path"), "/var/x");
  EXPECT_EQ(properties.getString("absent"), "");
}

TEST(Properties, BadFilesAreNamedWithTheirLine) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "loaded"},
      {"a = 1", "loaded"},
      {"a = 1\nno equals sign\n", ":2: '=' character not found in line"},
      {"# first\nLog.Level = 1\n\n[log]\nlevel = 2\n", ":5: duplicate key log.level"},
      {"a = 1\n\nA = 2\n", ":3: duplicate key A"}};
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(failureOf(text), expected) << text;
  Properties properties;
  EXPECT_NO_THROW(properties.load("/nonexistent/settings"));
  EXPECT_THROW(properties.load("/tmp"), ORVSException);
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

TEST(Properties, SettingAKeyDropsWhatWasDerivedFromTheOldValue) {
  Properties properties;
  EXPECT_FALSE(properties.isChanged());
  EXPECT_FALSE(properties.getBool("k", false));
  EXPECT_EQ(properties.getString("k"), "");
  EXPECT_TRUE(properties.getValueList("k", "")->empty());
  properties.set("K", "yes");
  EXPECT_TRUE(properties.getBool("k", false));
  EXPECT_EQ(properties.getString("k"), "yes");
  EXPECT_EQ(*properties.getValueList("k", ""), StringList{"yes"});
  EXPECT_TRUE(properties.isChanged());
}

TEST(Properties, ValueLists) {
  const TempFile file("ann\n# comment\n  bob  \r\n\nwith blank\nlast");
  const std::string source = std::string("file:") + file.path();
  const struct {
    std::string value;
    std::string source;
    StringList expected;
  } rows[] = {{"", "", {}},
              {"a,b c\t,,d", "x", {"a", "b", "c", "d"}},
              {"", "x y", {"x", "y"}},
              {source, "x", {"ann", "bob", "with blank", "last"}},
              {"file:/nonexistent/list", "x", {}}};
  for (const auto& row : rows) {
    Properties properties;
    if (!row.value.empty())
      properties.set("list", row.value);
    EXPECT_EQ(*properties.getValueList("list", row.source), row.expected) << row.value;
  }
}
