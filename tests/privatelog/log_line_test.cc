#include "privatelog/log_line.h"

#include <cstdlib>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

struct LineRow {
  const char* text = nullptr;
  LineType type = LineType::Ignored;
  LogRecordView record;
};

const LogRecordView kNothing;

const LineRow kLines[] = {
    {"", LineType::Ignored, kNothing},
    {"#/a:1:2:3:4:5:6", LineType::Ignored, kNothing},
    {"!Thu Nov 12 12:34:28 2026", LineType::Date, kNothing},
    {"=ann:1:2:3:4", LineType::PasswdUpdate, kNothing},
    {"@staff:1:2", LineType::GroupUpdate, kNothing},
    {"/a:1:2:3:4:5:6", LineType::Change, {{1, 2}, {3, 4}, {5, 6}, "/a", false}},
    {">/a:1:2:3:4:5:6", LineType::FollowedChange, {{1, 2}, {3, 4}, {5, 6}, "/a", false}},
    {"/a:1:2:3:4:5:6:", LineType::Change, {{1, 2}, {3, 4}, {5, 6}, "/a", true}},
    {"/a:1:2:3:4:5:6:7", LineType::Change, {{1, 2}, {3, 4}, {5, 6}, "/a", true}},
    // The end of the line, reached field by field.
    {"/a", LineType::Ignored, kNothing},
    {"/a:", LineType::Ignored, kNothing},
    {"/a:1", LineType::Ignored, {{1, 0}, {}, {}, "", false}},
    {"/a:1:2", LineType::Ignored, {{1, 2}, {}, {}, "/a", false}},
    {"/a:1:2:3", LineType::Ignored, {{1, 2}, {3, 0}, {}, "/a", false}},
    {"/a:1:2:3:4", LineType::Ignored, {{1, 2}, {3, 4}, {}, "/a", false}},
    {"/a:1:2:3:4:", LineType::IncompleteChange, {{1, 2}, {3, 4}, {}, "/a", false}},
    {"/a:1:2:3:4:5", LineType::IncompleteChange, {{1, 2}, {3, 4}, {}, "/a", false}},
    {">/a:1:2:3:4:5", LineType::IncompleteChange, {{1, 2}, {3, 4}, {}, "/a", false}},
    {"/a:1:2:3:4:5:", LineType::Change, {{1, 2}, {3, 4}, {5, 0}, "/a", false}},
    // Links need three fields and ignore the rest.
    {"+/a:1", LineType::Ignored, {{1, 0}, {}, {}, "", false}},
    {"+/a:1:", LineType::Link, {{1, 0}, {}, {}, "/a", false}},
    {"+/a:1:2", LineType::Link, {{1, 2}, {}, {}, "/a", false}},
    {"+/a:1:2:3:4:5:6:7", LineType::Link, {{1, 2}, {}, {}, "/a", false}},
    // A colon in a path shifts the fields by one.
    {"/a:b:1:2:3:4:5:6", LineType::Change, {{0, 1}, {2, 3}, {4, 5}, "/a", true}},
    // A date joined to the start that a killed run left.
    {"/a:1:2:3:4!Thu Nov 12 12:34:28 2026",
     LineType::Change,
     {{1, 2}, {3, 4}, {34, 28}, "/a", false}},
    // 64-bit numbers; ids are their low 32 bits.
    {"/a:9223372036854775807:18446744073709551615:4294967295:-1:4294967296:-4294967295",
     LineType::Change,
     {{9223372036854775807u, 9223372036854775807u},
      {4294967295u, 4294967295u},
      {0, 1},
      "/a",
      false}},
};

TEST(LogLine, KindAndFieldsOfALine) {
  for (const LineRow& row : kLines) {
    SCOPED_TRACE(row.text);
    LogRecordView record{{7, 7}, {7, 7}, {7, 7}, "stale", true};
    EXPECT_EQ(parseLogLine(row.text, record), row.type);
    EXPECT_EQ(record.id, row.record.id);
    EXPECT_EQ(record.oldIds, row.record.oldIds);
    EXPECT_EQ(record.newIds, row.record.newIds);
    EXPECT_EQ(record.hasSurplusFields, row.record.hasSurplusFields);
    if (row.type != LineType::Ignored) {
      EXPECT_EQ(record.path, row.record.path);
    }
  }
}

TEST(LogLine, NumbersAreThoseOfStrtol) {
  std::istringstream rows(
      "|0|12|-12|+7| \t\n\v\f\r42|- 1|--1|12ab|ab|0x10|007|9223372036854775806|"
      "9223372036854775807|9223372036854775808|-9223372036854775808|-9223372036854775809|"
      "99999999999999999999999|-99999999999999999999999");
  for (std::string text; std::getline(rows, text, '|');)
    EXPECT_EQ(parseLogNumber(text), strtol(text.c_str(), nullptr, 10)) << text;
}

TEST(LogLine, WritesTheWidestNumbers) {
  const uint64_t wide = 18446744073709551615u;
  const uint32_t id = 4294967295u;
  std::string out;
  appendChangeStart(out, {wide, wide}, {0, id}, "/l", true);
  const size_t start = out.size();
  appendChangeEnd(out, {id, id});
  EXPECT_EQ(out.size() - start, kMaxChangeEnd);
  EXPECT_EQ(out,
            ">/l:18446744073709551615:18446744073709551615:0:4294967295:4294967295:4294967295\n");
}

}  // namespace
