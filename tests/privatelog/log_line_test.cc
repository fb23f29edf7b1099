// The meaning of a line of the log, by its first character and the number of its fields.
#include "privatelog/log_line.h"

#include <gtest/gtest.h>

namespace {

std::string text(OwnerIds ids) {
  return " " + std::to_string(ids.uid) + ":" + std::to_string(ids.gid);
}

// The parsed line in words.
std::string read(const std::string& line) {
  PrivateLogRecord record;
  const LineType type = parseLogLine(line, record);
  const char* const words[] = {"ignored",  "date",       "link", "change",
                               "followed", "incomplete", "user", "group"};
  std::string said = words[static_cast<size_t>(type)];
  if (const auto user = parsePasswdUpdateLine(line))
    said += " " + std::string(user->name) + text(user->oldIds) + text(user->newIds);
  if (const auto group = parseGroupUpdateLine(line))
    said += " " + std::string(group->name) + text({group->oldGid, group->newGid});
  if (type < LineType::Link || type > LineType::IncompleteChange)
    return said;
  return said + " " + std::string(record.path) + " " + std::to_string(record.id.device) + ":" +
         std::to_string(record.id.inode) + text(record.oldIds) + text(record.newIds) +
         (record.hasSurplusFields ? " and more" : "");
}

TEST(LogLine, Meanings) {
  const std::pair<const char*, const char*> rows[] = {
      {"/a:1:2:500:100:7:8", "change /a 1:2 500:100 7:8"},
      {">/a:1:2:500:100:7:8", "followed /a 1:2 500:100 7:8"},
      {"/a:1:2:500:100:7:", "change /a 1:2 500:100 7:0"},
      {"/a:1:2:500:100:7:8:", "change /a 1:2 500:100 7:8 and more"},
      {"/a:b:1:2:500:100:7:8", "change /a 0:1 2:500 100:7 and more"},
      {"/a:1:2:500:100:7", "incomplete /a 1:2 500:100 0:0"},
      {"/a:1:2:500:100:", "incomplete /a 1:2 500:100 0:0"},
      {"+/a:1:2", "link /a 1:2 0:0 0:0"},
      {"+/a:1:2:7:8", "link /a 1:2 0:0 0:0"},
      {"@staff:100:10000", "group staff 100:10000"},
      {"@staff:100:", "group staff 100:0"},
      {"=ann:1:2:3:4:5", "user ann 1:2 3:4"},
      {"=ann:1:2:3:", "user ann 1:2 3:0"},
      {"!Thu Nov 12 12:34:28 2026", "date"},
      // Lines that lack a field.
      {"+/a:1", "ignored"},
      {"@staff:100", "group"},
      {"=ann:1:2:3", "user"},
      {"/a:1:2:500:100", "ignored"},
      {"/a:1:2:500", "ignored"},
      {"/a:1:2", "ignored"},
      {"/a", "ignored"},
      {"", "ignored"},
      {"#/a:1:2:500:100:7:8", "ignored"},
      // Lines with odd numbers.
      {"/a: +12x:-1:4294967296:-1:1e3:x", "change /a 12:18446744073709551615 0:4294967295 1:0"},
      {"/a:9223372036854775808:-9223372036854775809:99999999999999999999:\v9:\b9:- 9",
       "change /a 9223372036854775807:9223372036854775808 4294967295:9 0:0"},
  };
  for (const auto& [line, meaning] : rows)
    EXPECT_EQ(read(line), meaning) << line;
}

}  // namespace
