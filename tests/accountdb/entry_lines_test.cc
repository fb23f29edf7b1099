// The lines of passwd, group and shadow: which are accepted, which fields are kept, and how they
// are written.
#include <string>

#include <gtest/gtest.h>

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"
#include "accountdb/unused/db_shadow.h"

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

TEST(EntryLines, Rows) {
  expectRows<DBPasswd>({
      {"root:x:0:0:root:/root:/bin/bash", kUsable, "root:x:0:0:root:/root:/bin/bash"},
      {"ann::4294967295:100: A, B ::", kUsable, "ann::4294967295:100: A, B ::"},
      {" ann:x:007:+8:::", kUsable, " ann:x:7:8:::"},
      {"ann:x:u1:1x:::", kUsable, "ann:x:0:1:::"},
      {"ann:x:4294967296:-1:::", kUsable, "ann:x:4294967295:4294967295:::"},
      {":x:1:1:::", kUsable, ""},
      {"root:x:0:0:root:/root:/bin/bash:", kRejected, ""},
      {"root:x:0:0:root:/root", kRejected, ""},
      {"-@staff::::::", kMarker, ""},
      {"+ann:x:1:1:g:/h:/s:8:9", kMarker, ""},
  });
  expectRows<DBGroup>({
      {"wheel:x:10:", kUsable, "wheel:x:10:"},
      {"wheel:x:10:a,,b,", kUsable, "wheel:x:10:a,b"},
      {"wheel:x:10: a, b", kUsable, "wheel:x:10: a, b"},
      {"wheel:x:10:a,b:c,d:e,f", kUsable, "wheel:x:10:c,d:e,f"},
      {"wheel:x:10:a,b:", kUsable, "wheel:x:10:"},
      {":x:10:a", kUsable, ""},
      {"wheel:x:10", kRejected, ""},
      {"-wheel:x:10:a:b", kMarker, ""},
  });
  expectRows<DBShadow>({
      {"ann:*:::::::", kUsable, "ann:*:::::::"},
      {"ann:$y$h:1:2:3:4:5:6:7", kUsable, "ann:$y$h:1:2:3:4:5:6:7"},
      {"ann:*:19000d:x: 7:-1:0x10::-1", kUsable, "ann:*:19000:0:7:-1:0::18446744073709551615"},
      {"ann:*::::::", kRejected, ""},
      {"ann:*::::::::", kRejected, ""},
      {"+ann", kMarker, ""},
  });
}

TEST(EntryLines, AnIncompleteEntryIsWrittenShort) {
  DBPasswd user;
  DBGroup group;
  user.name = group.name = "x";
  EXPECT_EQ(user.format() + " " + group.format(), "x:65534:65534 x:65534");
  user.clear();
  group.clear();
  user.name = group.name = "x";
  EXPECT_EQ(user.format() + " " + group.format(), "x:0:0 x:0");
}

}  // namespace
}  // namespace orvs
