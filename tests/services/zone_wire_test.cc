#include "services/agent/zone_wire.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace orvs::wire;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace {

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

TEST(ZoneWire, RepliesThatMakeSenseAndThoseThatDoNot) {
  // Unknown members of a record are ignored.
  const std::string good = R"("userName":"a","uid":0,"gid":4294967294,"service":"s","x":)";
  const Reply reply = parseReply(userReply(good + nested(kMaxDepth - 3)), Kind::User);
  EXPECT_EQ(reply.record.name, "a");
  EXPECT_EQ(reply.record.id, 0u);
  EXPECT_EQ(reply.record.gid, kMaxId);

  std::vector<std::string> rows = {"",
                                   "[]",
                                   "{}",
                                   nested(100'000),
                                   R"({"parameters":{"record":[]}})",
                                   R"({"error":7})",
                                   R"({"error":"a\u001b[2J"})",
                                   R"({"error":"x","more":true})",
                                   R"({"error":"x","error":"x"})",
                                   R"({"parameters":{},"continues":true,"error":"x"})"};
  for (const std::string& fields :
       {std::string(R"("uid":1,"gid":1)"), std::string(R"("userName":"a\u0000b","uid":1,"gid":1)"),
        std::string("\"userName\":\"m\xFC\",\"uid\":1,\"gid\":1"),
        std::string(R"("userName":"a","uid":1)"),
        std::string(R"("userName":"a","uid":1,"gid":4294967295)"),
        std::string(R"("userName":"a","uid":1,"uid":1,"gid":1)"), good + nested(kMaxDepth - 2)})
    rows.push_back(userReply(fields));
  for (const char* uid : {"-1", "1.0", "true", "\"1\"", "4294967295", "1e400"})
    rows.push_back(userReply(std::string(R"("userName":"a","gid":1,"uid":)") + uid));
  for (const std::string& row : rows)
    EXPECT_EQ(parseReply(row, Kind::User).outcome, Reply::Outcome::Malformed) << row.substr(0, 100);
}
