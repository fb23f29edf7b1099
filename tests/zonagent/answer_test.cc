#include "zonagent/answer.h"

#include <gtest/gtest.h>

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
      {group + R"({"gid":-1,"service":"svc"}})",
       R"({"error":"org.varlink.service.InvalidParameter","parameters":{"parameter":"gid"}})"},
      {R"({"method":"a.b"})",
       R"({"error":"org.varlink.service.MethodNotFound","parameters":{"method":"a.b"}})"},
      {group + R"({"gid":1,"service":"svc"},"oneway":true})", ""},
      {R"({"method":"a.b","oneway":true,"id":1})", "hang up"},
      {"", "hang up"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(reply(row.message), row.expected) << row.message;
}
