// The three line formats: what is accepted, what is kept, what comes back.
#include <cstdint>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "accountdb/db_shadow.h"

namespace orvs {
namespace {

enum Verdict { kUsable, kRejected, kMarker };

struct LineRow {
  const char* line;
  Verdict verdict;
  const char* written;  // by format() after parse()
};

template <class Entry>
void expectRows(std::initializer_list<LineRow> rows) {
  for (const LineRow& row : rows) {
    SCOPED_TRACE(row.line);
    Entry entry;
    entry.name = "stale";
    EXPECT_EQ(entry.parse(row.line), row.verdict == kUsable);
    EXPECT_EQ(entry.isMarker(), row.verdict == kMarker);
    EXPECT_EQ(entry.format(), row.written);
    EXPECT_TRUE(row.verdict == kUsable || entry.isEmpty());
  }
}

TEST(PasswdLine, Rows) {
  expectRows<DBPasswd>({
      {"root:x:0:0:root:/root:/bin/bash", kUsable, "root:x:0:0:root:/root:/bin/bash"},
      {"ann::4294967295:100: A, B ::", kUsable, "ann::4294967295:100: A, B ::"},
      {" ann:x:007:+8:::", kUsable, " ann:x:7:8:::"},
      {"ann:x:u1:1x:::", kUsable, "ann:x:0:1:::"},
      {"ann:x:4294967296:-1:::", kUsable, "ann:x:4294967295:4294967295:::"},
      {":x:1:1:::", kUsable, ""},
      {"root:x:0:0:root:/root:/bin/bash:", kRejected, ""},
      {"root:x:0:0:root:/root", kRejected, ""},
      {"", kRejected, ""},
      {"+", kMarker, ""},
      {"-@staff::::::", kMarker, ""},
      {"+ann:x:1:1:g:/h:/s", kMarker, ""},
      {"+ann:x:1:1:g:/h:/s:8:9", kMarker, ""},
      {" +ann", kRejected, ""},
  });
}

TEST(GroupLine, Rows) {
  expectRows<DBGroup>({
      {"wheel:x:10:", kUsable, "wheel:x:10:"},
      {"wheel:x:10:a", kUsable, "wheel:x:10:a"},
      {"wheel:x:10:a,,b,", kUsable, "wheel:x:10:a,b"},
      {"wheel:x:10: a, b", kUsable, "wheel:x:10: a, b"},
      {"wheel:x:10:a,b:c,d:e,f", kUsable, "wheel:x:10:c,d:e,f"},
      {"wheel:x:10:a,b:", kUsable, "wheel:x:10:"},
      {"wheel:x:none:a", kUsable, "wheel:x:0:a"},
      {":x:10:a", kUsable, ""},
      {"wheel:x:10", kRejected, ""},
      {"", kRejected, ""},
      {"+", kMarker, ""},
      {"-wheel:x:10:a:b", kMarker, ""},
  });
}

TEST(ShadowLine, Rows) {
  expectRows<DBShadow>({
      {"ann:*:::::::", kUsable, "ann:*:::::::"},
      {"ann:$y$h:1:2:3:4:5:6:7", kUsable, "ann:$y$h:1:2:3:4:5:6:7"},
      {"ann:*:19000d:x: 7:-1:0x10::-1", kUsable, "ann:*:19000:0:7:-1:0::18446744073709551615"},
      {"ann:*:99999999999999999999::::::", kUsable, "ann:*:9223372036854775807::::::"},
      {":*:::::::", kUsable, ""},
      {"ann:*::::::", kRejected, ""},
      {"ann:*::::::::", kRejected, ""},
      {"", kRejected, ""},
      {"+ann", kMarker, ""},
      {"-ann:*:::::::", kMarker, ""},
  });
}

TEST(ShadowLine, AnAbsentNumberIsMinusOneUntilCleared) {
  DBShadow shadow;
  EXPECT_TRUE(shadow.parse("ann:*:5::::::"));
  EXPECT_EQ(shadow.minAge.value, -1);
  shadow.clear();
  EXPECT_EQ(shadow.minAge.value + shadow.lastChange.value, 0);
}

TEST(Entries, AnIncompleteEntryIsWrittenShort) {
  DBPasswd user;
  DBGroup group;
  user.name = group.name = "x";
  EXPECT_EQ(user.format() + " " + group.format(), "x:65534:65534 x:65534");
  user.clear();
  group.clear();
  user.name = group.name = "x";
  EXPECT_EQ(user.format() + " " + group.format(), "x:0:0 x:0");
}

TEST(Entries, AFieldThatTheLineLacksKeepsItsValue) {
  DBPasswd user;
  ASSERT_TRUE(user.parse("ann:x:5:6:g:/h:/s"));
  EXPECT_FALSE(user.parse("bob:y:7"));
  EXPECT_EQ(user.uid, 7u);
  EXPECT_EQ(user.gid, 6u);
  DBGroup group;
  ASSERT_TRUE(group.parse("wheel:x:10:a,b"));
  EXPECT_FALSE(group.parse("bin:x:2"));
  EXPECT_EQ(group.members.size(), 2u);
}

// The rule is the text stream's: whatever it makes of a text, starting from 0.
TEST(UnsignedField, ReadsAsATextStreamDoes) {
  FieldReader texts(
      "|0|7|00012|0x10|10x| 5|5 |\t6|-1|-0|-4294967295|-4294967296|+5|++5|+-5|-|x|999999999|"
      "1000000000|4294967295|4294967296|4294967296x|000000000012|1e3|-99999999999999999999",
      '|');
  std::string_view text;
  while (texts.next(text)) {
    uint32_t expected = 0;
    std::istringstream(std::string(text)) >> expected;
    EXPECT_EQ(parseUnsignedField(text), expected) << text;
  }
}

TEST(ShadowRecord, NegativeNumbersAreLeftOut) {
  char name[] = "ann", password[] = "x";
  const struct spwd shadow = {name, password, 1, -1, 0, -1, 5, -7, ~0ul};
  EXPECT_EQ(formatRecord(&shadow), "ann:x:1::0::5::18446744073709551615");
  EXPECT_EQ(formatRecord(static_cast<const struct spwd*>(nullptr)), "");
}

}  // namespace
}  // namespace orvs
