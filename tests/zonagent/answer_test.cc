#include "zonagent/answer.h"

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
    const bool isKnown = question.name != "gone" && question.id != 404;
    return isKnown ? table.find(question) : Answer{Verdict::Unavailable, {}};
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
  for (const std::string noise :
       {R"({"parameters":{"incomplete":false,"record":)", R"("service":"svc",)",
        "io.systemd.UserDatabase.", R"(,"parameters":{})", "org.varlink.service.Invalid"}) {
    if (const size_t at = text.find(noise); at != text.npos)
      text.erase(at, noise.size());
  }
  return text;
}

std::string user(const std::string& parameters) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{)" + parameters +
         R"(,"service":"svc"}})";
}

std::string nested(size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

}  // namespace

TEST(Answer, Rows) {
  const std::string group = R"({"method":"io.systemd.UserDatabase.GetGroupRecord")";
  const std::string ayla = R"({"gid":70000,"uid":70001,"userName":"ayla"}}})";
  const std::string badService = R"({"error":"Parameter","parameters":{"parameter":"service"}})";
  const std::string badName = R"({"error":"Parameter","parameters":{"parameter":"userName"}})";
  const std::string badId = R"({"error":"Parameter","parameters":{"parameter":"uid"}})";
  const struct {
    std::string message;
    std::string expected;
  } rows[] = {
      {user(R"("userName":"ayla")"), ayla},
      {user(R"("uid":70001)"), ayla},
      {user(R"("uid":70001,"userName":"ayla")"), ayla},
      {group + R"(,"parameters":{"gid":70000,"service":"svc"}})",
       R"({"gid":70000,"groupName":"staff_z","service":"svc"}}})"},
      {user(R"("userName":"staff_z")"), R"({"error":"NoRecordFound"})"},
      {user(R"("userName":"gone")"), R"({"error":"ServiceNotAvailable"})"},
      {user(R"("uid":70002,"userName":"ayla")"), R"({"error":"ConflictingRecordFound"})"},
      {user(R"("uid":70002,"userName":"nope")"), R"({"error":"ConflictingRecordFound"})"},
      {user(R"("uid":9,"userName":"nope")"), R"({"error":"NoRecordFound"})"},
      {user(R"("uid":9,"userName":"gone")"), R"({"error":"ServiceNotAvailable"})"},
      {user(R"("uid":404,"userName":"nope")"), R"({"error":"ServiceNotAvailable"})"},
      {group + R"(,"parameters":{"service":"svc"},"more":true})",
       R"({"error":"EnumerationNotSupported"})"},
      {group + R"(,"parameters":{"gid":1,"service":"other"}})", R"({"error":"BadService"})"},
      {user(R"("uid":4294967294)"), R"({"error":"NoRecordFound"})"},
      {R"({"method":"org.varlink.service.GetInfo"})",
       R"({"parameters":{"interfaces":["org.varlink.service","io.systemd.UserDatabase"],)"
       R"("product":"zonagent","url":"","vendor":"idshift","version":")" IDSHIFT_VERSION "\"}}"},
      {R"({"method":"a.b"})",
       R"({"error":"org.varlink.service.MethodNotFound","parameters":{"method":"a.b"}})"},
      {group + R"(,"parameters":{"gid":1,"service":"svc"},"oneway":true})", ""},
      // Parameters that are none.
      {group + "}", badService},
      {group + R"(,"parameters":{"gid":1,"service":7}})", badService},
      {user(R"("userName":"")"), badName},
      {user(R"("groupName":"g")"),
       R"({"error":"Parameter","parameters":{"parameter":"groupName"}})"},
      {user(R"("uid":-1)"), badId},
      {user(R"("uid":4294967295)"), badId},
      // What is no request.
      {"", "hang up"},
      {R"({"parameters":{}})", "hang up"},
      {R"({"method":7})", "hang up"},
      {R"({"method":"x","oneway":1})", "hang up"},
      {R"({"method":"x","oneway":true,"id":1})", "hang up"},
      {R"({"method":"x","upgrade":true})", "hang up"},
      {R"({"method":"x","parameters":[]})", "hang up"},
      {user(R"("userName":"a\u007f")"), "hang up"},
      {R"({"method":"x","parameters":{"p":)" + nested(orvs::wire::kMaxDepth - 1) + "}}", "hang up"},
      {R"({"method":"x")" + std::string(orvs::wire::kMaxRequestBytes, ' ') + "}", "hang up"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(reply(row.message), row.expected) << row.message.substr(0, 100);
}
