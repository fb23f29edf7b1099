#include "services/zone_wire.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace orvs::wire;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace {

std::string show(const Record& record) {
  return record.name + ":" + (record.id ? std::to_string(*record.id) : "none") + ":" +
         std::to_string(record.gid);
}

// One word for the outcome and what belongs to it.
std::string show(const Reply& reply) {
  if (reply.outcome == Reply::Outcome::Malformed)
    return "malformed";
  return reply.outcome == Reply::Outcome::Error ? "error " + reply.detail : show(reply.record);
}

std::string userReply(const std::string& fields) {
  return R"({"parameters":{"record":{)" + fields + R"(},"incomplete":false}})";
}

std::string nested(size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

}  // namespace

TEST(ZoneWire, NameForms) {
  for (const char* name : {"ayla", "CORP\\m\xC3\xBCller", "\xF4\x8F\xBF\xBF"})
    EXPECT_EQ(nameForm(name), NameForm::Good) << name;
  for (const std::string& name :
       {std::string(), std::string("a\tb"), std::string("a\0b", 3), std::string("a\x7F")})
    EXPECT_EQ(nameForm(name), NameForm::Impossible) << name;
  for (const char* name : {"m\xFCller", "m\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80",
                           "\xF4\x90\x80\x80", "\x80"})
    EXPECT_EQ(nameForm(name), NameForm::NotUtf8) << name;
}

TEST(ZoneWire, UserReplies) {
  const struct {
    std::string message;
    const char* expected;
  } rows[] = {
      {userReply(R"("userName":"ayla","uid":70001,"gid":70000,"service":"s","home":"/h")"),
       "ayla:70001:70000"},
      {userReply(R"("userName":"ayla","uid":0,"gid":4294967294)"), "ayla:0:4294967294"},
      {userReply(R"("userName":"ayla")"), "ayla:none:0"},
      {R"({"error":"io.systemd.UserDatabase.NoRecordFound","parameters":{}})",
       "error io.systemd.UserDatabase.NoRecordFound"},
      {R"({"error":"x"})", "error x"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(show(parseReply(row.message, Kind::User)), row.expected) << row.message;
  EXPECT_EQ(show(parseReply(userReply(R"("groupName":"g","gid":5)"), Kind::Group)), "g:5:0");
}

TEST(ZoneWire, RepliesThatMakeNoSense) {
  std::vector<std::string> rows = {"",
                                   "{",
                                   "[]",
                                   "{}",
                                   nested(100'000),
                                   R"({"parameters":{"record":[]}})",
                                   R"({"error":7})",
                                   R"({"error":"a\u001b[2J"})",
                                   R"({"error":"x","more":true})",
                                   R"({"error":"x","error":"x"})",
                                   R"({"parameters":{},"continues":true,"error":"x"})"};
  for (const char* name : {R"("userName":"a\u0000b",)", "\"userName\":\"m\xFC\",", ""})
    rows.push_back(userReply(name + std::string(R"("uid":1,"gid":1)")));
  for (const std::string& ids :
       {std::string(R"("uid":1)"), std::string(R"("uid":1,"gid":4294967295)"),
        std::string(R"("uid":1,"uid":1,"gid":1)"),
        R"("uid":1,"gid":1,"x":)" + nested(kMaxDepth - 2)})
    rows.push_back(userReply(R"("userName":"a",)" + ids));
  for (const char* uid : {"-1", "1.0", "true", "\"1\"", "4294967295", "1e400"})
    rows.push_back(userReply(std::string(R"("userName":"a","gid":1,"uid":)") + uid));
  for (const std::string& row : rows)
    EXPECT_EQ(show(parseReply(row, Kind::User)), "malformed") << row.substr(0, 100);
}
