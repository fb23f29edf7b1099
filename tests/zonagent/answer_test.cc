#include "zonagent/answer.h"

#include <utility>

#include <gtest/gtest.h>

#include "services/zone_wire.h"
#include "zonagent/zone_table.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

// A zone of three accounts that cannot tell about "gone" and id 404.
class MemoryZone : public ZoneBackend {
 public:
  MemoryZone() {
    table.readUsers("ayla:x:70001:70000:::\nbo:x:70002:70000:::\n", "passwd");
    table.readGroups("staff_z:x:70000:\n", "group");
  }
  Answer find(const orvs::wire::Question& question) override {
    if (question.name == "gone" || question.id == 404)
      return {Verdict::Unavailable, {}};
    return table.find(question);
  }
  bool mayBlock() const override { return false; }
  void reload() override {}
  std::string sources() const override { return ""; }
  Online online() override { return Online::NotAsked; }

 private:
  ZoneTable table;
};

// The reply cut down to what matters, "hang up", or an empty string for silence.
std::string reply(const std::string& message) {
  MemoryZone zone;
  const Action action = answer(message, "svc", zone);
  if (action.what == Action::What::HangUp)
    return "hang up";
  std::string text = action.bytes.substr(0, action.bytes.find('\0'));
  for (const char* noise : {R"({"parameters":{"incomplete":false,"record":)", R"("service":"svc",)",
                            "io.systemd.UserDatabase.", R"(,"parameters":{})"}) {
    if (const size_t at = text.find(noise); at != text.npos)
      text.erase(at, std::string(noise).size());
  }
  return text;
}

std::string user(const std::string& parameters) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{)" + parameters +
         R"(,"service":"svc"}})";
}

}  // namespace

TEST(Answer, Rows) {
  const std::string group = R"({"method":"io.systemd.UserDatabase.GetGroupRecord","parameters":)";
  const struct {
    std::string message;
    const char* expected;
  } rows[] = {
      {user(R"("userName":"ayla")"), R"({"gid":70000,"uid":70001,"userName":"ayla"}}})"},
      {user(R"("uid":70002)"), R"({"gid":70000,"uid":70002,"userName":"bo"}}})"},
      {user(R"("uid":70001,"userName":"ayla")"),
       R"({"gid":70000,"uid":70001,"userName":"ayla"}}})"},
      {group + R"({"gid":70000,"service":"svc"}})",
       R"({"gid":70000,"groupName":"staff_z","service":"svc"}}})"},
      {user(R"("userName":"staff_z")"), R"({"error":"NoRecordFound"})"},
      {user(R"("userName":"gone")"), R"({"error":"ServiceNotAvailable"})"},
      {user(R"("uid":70002,"userName":"ayla")"), R"({"error":"ConflictingRecordFound"})"},
      {user(R"("uid":70002,"userName":"nope")"), R"({"error":"ConflictingRecordFound"})"},
      {user(R"("uid":9,"userName":"nope")"), R"({"error":"NoRecordFound"})"},
      {user(R"("uid":9,"userName":"gone")"), R"({"error":"ServiceNotAvailable"})"},
      {user(R"("uid":404,"userName":"nope")"), R"({"error":"ServiceNotAvailable"})"},
      {group + R"({"service":"svc"},"more":true})", R"({"error":"EnumerationNotSupported"})"},
      {group + R"({"gid":1,"service":"other"}})", R"({"error":"BadService"})"},
      {user(R"("uid":4294967294)"), R"({"error":"NoRecordFound"})"},
      {R"({"method":"org.varlink.service.GetInfo"})",
       R"({"parameters":{"interfaces":["org.varlink.service","io.systemd.UserDatabase"],)"
       R"("product":"zonagent","url":"","vendor":"idshift","version":")" IDSHIFT_VERSION "\"}}"},
      {R"({"method":"a.b"})",
       R"({"error":"org.varlink.service.MethodNotFound","parameters":{"method":"a.b"}})"},
      {group + R"({"gid":1,"service":"svc"},"oneway":true})", ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(reply(row.message), row.expected) << row.message;
}

TEST(Answer, InvalidParameters) {
  const std::string method = R"({"method":"io.systemd.UserDatabase.GetUserRecord")";
  const std::pair<std::string, std::string> rows[] = {
      {method + "}", "service"},
      {method + R"(,"parameters":{"uid":1,"service":7}})", "service"},
      {user(R"("userName":"")"), "userName"},
      {user(R"("groupName":"g")"), "groupName"},
      {user(R"("uid":-1)"), "uid"},
      {user(R"("uid":4294967295)"), "uid"}};
  for (const auto& [message, parameter] : rows)
    EXPECT_EQ(reply(message), R"({"error":"org.varlink.service.InvalidParameter","parameters":)"
                              R"({"parameter":")" +
                                  parameter + "\"}}")
        << message;
}

TEST(Answer, HangsUpOnWhatIsNoRequest) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  const std::string rows[] = {
      "",
      "GET / HTTP/1.1",
      R"({"parameters":{}})",
      R"({"method":7})",
      R"({"method":"x","oneway":1})",
      R"({"method":"x","oneway":true,"id":1})",
      R"({"method":"x","upgrade":true})",
      R"({"method":"x","parameters":[]})",
      user(R"("userName":"a\u007f")"),
      R"({"method":"x","parameters":{"p":)" + nested(orvs::wire::kMaxDepth - 1) + "}}",
      R"({"method":"x")" + std::string(orvs::wire::kMaxRequestBytes, ' ') + "}"};
  for (const std::string& row : rows)
    EXPECT_EQ(reply(row), "hang up") << row.substr(0, 100);
}
