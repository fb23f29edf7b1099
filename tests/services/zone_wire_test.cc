#include "services/zone_wire.h"

#include <string>

#include <gtest/gtest.h>

using namespace orvs::wire;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace {

std::string show(const Record& record) {
  return record.name + ":" + (record.id ? std::to_string(*record.id) : "none") + ":" +
         std::to_string(record.gid);
}

// One word for the outcome and what belongs to it.
std::string show(const Reply& reply) {
  switch (reply.outcome) {
    case Reply::Outcome::Found:
      return show(reply.record);
    case Reply::Outcome::Error:
      return "error " + reply.detail;
    case Reply::Outcome::Malformed:
      return "malformed";
  }
  return "";
}

std::string show(const Request& request) {
  const Question& question = request.question;
  switch (request.method) {
    case Request::Method::Malformed:
      return "malformed";
    case Request::Method::Info:
      return "info";
    case Request::Method::Unknown:
      return "unknown " + request.detail;
    case Request::Method::InvalidParameter:
      return "invalid " + request.detail;
    case Request::Method::Lookup:
      return std::string(question.kind == Kind::User ? "user " : "group ") +
             question.name.value_or("-") + " " +
             (question.id ? std::to_string(*question.id) : "-") + " at " + request.service +
             (request.oneway ? " oneway" : "");
  }
  return "";
}

std::string userReply(const std::string& fields) {
  return R"({"parameters":{"record":{)" + fields + R"(},"incomplete":false}})";
}

std::string userRequest(const std::string& parameters) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{)" + parameters + "}}";
}

std::string nested(size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

}  // namespace

TEST(ZoneWire, NameForms) {
  const struct {
    std::string name;
    NameForm form;
  } rows[] = {{"ayla", NameForm::Good},
              {"CORP\\m\xC3\xBCller", NameForm::Good},
              {"\xF4\x8F\xBF\xBF", NameForm::Good},
              {"", NameForm::Impossible},
              {"a\tb", NameForm::Impossible},
              {std::string("a\0b", 3), NameForm::Impossible},
              {"a\x7F", NameForm::Impossible},
              {"m\xFCller", NameForm::NotUtf8},
              {"m\xC3", NameForm::NotUtf8},
              {"\xC0\xAF", NameForm::NotUtf8},
              {"\xE0\x80\xAF", NameForm::NotUtf8},
              {"\xED\xA0\x80", NameForm::NotUtf8},
              {"\xF4\x90\x80\x80", NameForm::NotUtf8},
              {"\x80", NameForm::NotUtf8}};
  for (const auto& row : rows)
    EXPECT_EQ(nameForm(row.name), row.form) << row.name;
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
  const std::string rows[] = {
      "",
      "{",
      "[]",
      "null",
      "{}",
      R"({"parameters":null})",
      R"({"parameters":{"record":[]}})",
      R"({"error":7})",
      R"({"error":""})",
      R"({"error":"a\u001b[2J"})",
      R"({"error":"x","more":true})",
      R"({"error":"x","error":"x"})",
      R"({"parameters":{},"continues":true,"error":"x"})",
      userReply(R"("uid":1,"gid":1)"),
      userReply(R"("userName":"","uid":1,"gid":1)"),
      userReply(R"("userName":"a\u0000b","uid":1,"gid":1)"),
      userReply(R"("userName":"a\nb","uid":1,"gid":1)"),
      userReply("\"userName\":\"m\xFC\",\"uid\":1,\"gid\":1"),
      userReply(R"("userName":"a","uid":1)"),
      userReply(R"("userName":"a","uid":null,"gid":1)"),
      userReply(R"("userName":"a","uid":-1,"gid":1)"),
      userReply(R"("userName":"a","uid":1.0,"gid":1)"),
      userReply(R"("userName":"a","uid":true,"gid":1)"),
      userReply(R"("userName":"a","uid":"1","gid":1)"),
      userReply(R"("userName":"a","uid":4294967295,"gid":1)"),
      userReply(R"("userName":"a","uid":4294967297,"gid":1)"),
      userReply(R"("userName":"a","uid":1e400,"gid":1)"),
      userReply(R"("userName":"a","uid":1,"gid":-1)"),
      userReply(R"("userName":"a","uid":1,"gid":4294967295)"),
      userReply(R"("userName":"a","uid":1,"uid":1,"gid":1)"),
      userReply(R"("userName":"a","uid":1,"gid":1,"x":)" + nested(kMaxDepth - 2)),
      nested(100'000),
  };
  for (const std::string& row : rows)
    EXPECT_EQ(show(parseReply(row, Kind::User)), "malformed") << row.substr(0, 100);
}

TEST(ZoneWire, Requests) {
  const struct {
    std::string message;
    const char* expected;
  } rows[] = {
      {userRequest(R"("userName":"ayla","service":"s")"), "user ayla - at s"},
      {userRequest(R"("userName":"ayla","uid":7,"service":"s")"), "user ayla 7 at s"},
      {userRequest(R"("service":"s")"), "user - - at s"},
      {R"({"method":"io.systemd.UserDatabase.GetGroupRecord","more":true,"oneway":true,)"
       R"("parameters":{"gid":4294967294,"service":"s"}})",
       "group - 4294967294 at s oneway"},
      {R"({"method":"org.varlink.service.GetInfo"})", "info"},
      {R"({"method":"io.systemd.UserDatabase.GetMemberships","parameters":{"x":1}})",
       "unknown io.systemd.UserDatabase.GetMemberships"},
      {userRequest(R"("userName":"ayla")"), "invalid service"},
      {R"({"method":"io.systemd.UserDatabase.GetUserRecord"})", "invalid service"},
      {userRequest(R"("userName":"","service":"s")"), "invalid userName"},
      {userRequest(R"("userName":null,"service":"s")"), "invalid userName"},
      {userRequest(R"("groupName":"g","service":"s")"), "invalid groupName"},
      {userRequest(R"("uid":4294967295,"service":"s")"), "invalid uid"},
      {userRequest(R"("uid":-1,"service":"s")"), "invalid uid"},
      {userRequest(R"("uid":1,"service":7)"), "invalid service"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(show(parseRequest(row.message)), row.expected) << row.message;
}

TEST(ZoneWire, RequestsToHangUpOn) {
  const std::string rows[] = {
      "",
      "GET / HTTP/1.1",
      R"("method")",
      R"({"parameters":{}})",
      R"({"method":7})",
      R"({"method":"x","upgrade":true})",
      R"({"method":"x","oneway":1})",
      R"({"method":"x","more":null})",
      R"({"method":"x","parameters":[]})",
      R"({"method":"x","method":"x"})",
      userRequest(R"("userName":"a\u0000","service":"s")"),
      userRequest(R"("userName":"a\u007f","service":"s")"),
      userRequest("\"userName\":\"m\xFC\",\"service\":\"s\""),
      R"({"method":"x","parameters":{"p":)" + nested(kMaxDepth - 1) + "}}",
      R"({"method":"x")" + std::string(kMaxRequestBytes, ' ') + "}",
  };
  for (const std::string& row : rows)
    EXPECT_EQ(show(parseRequest(row)), "malformed") << row.substr(0, 100);
}

TEST(ZoneWire, BytesOnTheWire) {
  const auto text = [](const std::string& message) {
    return message.ends_with('\0') ? message.substr(0, message.size() - 1) : "no NUL: " + message;
  };
  EXPECT_EQ(text(encodeQuestion({Kind::User, "ayla", {}}, "s")),
            R"({"method":"io.systemd.UserDatabase.GetUserRecord",)"
            R"("parameters":{"service":"s","userName":"ayla"}})");
  EXPECT_EQ(text(encodeQuestion({Kind::Group, {}, 7}, "s")),
            R"({"method":"io.systemd.UserDatabase.GetGroupRecord",)"
            R"("parameters":{"gid":7,"service":"s"}})");
  EXPECT_EQ(text(encodeRecord(Kind::User, {"ayla", 7, 8}, "s")),
            R"({"parameters":{"incomplete":false,)"
            R"("record":{"gid":8,"service":"s","uid":7,"userName":"ayla"}}})");
  EXPECT_EQ(text(encodeRecord(Kind::Group, {"staff", 7, 0}, "s")),
            R"({"parameters":{"incomplete":false,)"
            R"("record":{"gid":7,"groupName":"staff","service":"s"}}})");
  EXPECT_EQ(text(encodeError(kNoRecordFound)),
            R"({"error":"io.systemd.UserDatabase.NoRecordFound","parameters":{}})");
  EXPECT_EQ(text(encodeError(kInvalidParameter, "parameter", "uid")),
            R"({"error":"org.varlink.service.InvalidParameter","parameters":{"parameter":"uid"}})");
}
