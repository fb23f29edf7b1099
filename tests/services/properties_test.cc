#include "services/properties.h"

#include <stdlib.h>
#include <unistd.h>

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
  ~TempFile() { ::unlink(name); }
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
  const struct {
    const char* text;
    const char* expected;
  } rows[] = {{"", "loaded"},
              {"a = 1", "loaded"},
              {"a = 1\nno equals sign\n", ":2: '=' character not found in line"},
              {"a = 1\na = 2\n", ":2: duplicate key name"},
              {"# first\nLog.Level = 1\n\n[log]\nlevel = 2\n", ":5: duplicate key log.level"},
              {"a = 1\n\nA = 2\n", ":3: duplicate key A"},
              {"[log\nlevel=1\n", ":1: unmatched '['"}};
  for (const auto& row : rows)
    EXPECT_EQ(failureOf(row.text), row.expected) << row.text;
}

TEST(Properties, MissingFileIsEmptyButADirectoryIsNot) {
  Properties properties;
  EXPECT_NO_THROW(properties.load("/nonexistent/settings"));
  EXPECT_THROW(properties.load("/tmp"), ORVSException);
}

TEST(Properties, Booleans) {
  const struct {
    const char* value;
    bool whenDefaultTrue;
    bool whenDefaultFalse;
  } rows[] = {{"true", true, true},    {"YES", true, true},  {"1", true, true},
              {"False", false, false}, {"no", false, false}, {"0", false, false},
              {"", true, false},       {"on", true, false},  {"2", true, false}};
  for (const auto& row : rows) {
    Properties properties;
    properties.set("Key", row.value);
    EXPECT_EQ(properties.getBool("kEY", true), row.whenDefaultTrue) << row.value;
    EXPECT_EQ(properties.getBool("key", false), row.whenDefaultFalse) << row.value;
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
              {"a,b c\t,,d", "", {"a", "b", "c", "d"}},
              {"", "x y", {"x", "y"}},
              {"z", "x y", {"z"}},
              {"", source, {"ann", "bob", "with blank", "last"}},
              {source, "x", {"ann", "bob", "with blank", "last"}},
              {"file:/nonexistent/list", "x", {}}};
  for (const auto& row : rows) {
    Properties properties;
    if (!row.value.empty())
      properties.set("list", row.value);
    EXPECT_EQ(*properties.getValueList("list", row.source), row.expected) << row.value;
  }
}
