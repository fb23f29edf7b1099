#include "zonagent/answer.h"

#include <gtest/gtest.h>

#include "services/agent/zone_wire.h"
#include "zonagent/agent_log.h"
#include "zonagent/zone_table.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

// A zone of three accounts. Lookups of "gone" and of id 404 are Unavailable.
class MemoryZone : public ZoneBackend {
 public:
  MemoryZone() {
    table.readUsers(inOnePiece("ayla:x:70001:70000:::\nbo:x:70002:70000:::\n"), "passwd");
    table.readGroups(inOnePiece("staff_z:x:70000:\n"), "group");
  }
  Answer find(const orvs::wire::Question& question) override {
    const bool isKnown = question.name != "gone" && question.id != 404;
    return isKnown ? table.find(question) : Answer{Verdict::Unavailable, {}, "it is gone"};
  }

 private:
  ZoneTable table;
};

// The reply, "hang up", or an empty string for silence.
std::string reply(const std::string& message) {
  MemoryZone zone;
  const Action action = decide(orvs::wire::parseRequest(message), "svc", zone);
  return action.what == Action::What::HangUp ? "hang up"
                                             : action.bytes.substr(0, action.bytes.find('\0'));
}

std::string user(const std::string& parameters) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{)" + parameters +
         R"(,"service":"svc"}})";
}

std::string record(const std::string& fields) {
  return R"({"parameters":{"incomplete":false,"record":{)" + fields + "}}}";
}

std::string error(const std::string& name) {
  return R"({"error":"io.systemd.UserDatabase.)" + name + R"(","parameters":{}})";
}

std::string badParameter(const std::string& name) {
  return R"({"error":"org.varlink.service.InvalidParameter","parameters":{"parameter":")" + name +
         "\"}}";
}

std::string nested(size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

}  // namespace

TEST(Answer, Rows) {
  const std::string group = R"({"method":"io.systemd.UserDatabase.GetGroupRecord")";
  const std::string memberships =
      R"({"method":"io.systemd.UserDatabase.GetMemberships","parameters":{"service":)";
  const std::pair<std::string, std::string> rows[] = {
      {user(R"("uid":70001,"userName":"ayla")"),
       record(R"("gid":70000,"service":"svc","uid":70001,"userName":"ayla")")},
      {group + R"(,"parameters":{"gid":70000,"service":"svc"}})",
       record(R"("gid":70000,"groupName":"staff_z","service":"svc")")},
      {user(R"("userName":"staff_z")"), error("NoRecordFound")},
      {user(R"("uid":4294967294)"), error("NoRecordFound")},
      {user(R"("userName":"gone")"), error("ServiceNotAvailable")},
      {user(R"("uid":70002,"userName":"ayla")"), error("ConflictingRecordFound")},
      {user(R"("uid":70002,"userName":"nope")"), error("ConflictingRecordFound")},
      {user(R"("uid":9,"userName":"nope")"), error("NoRecordFound")},
      {user(R"("uid":9,"userName":"gone")"), error("ServiceNotAvailable")},
      {user(R"("uid":404,"userName":"nope")"), error("ServiceNotAvailable")},
      {group + R"(,"parameters":{"service":"svc"},"more":true})", error("EnumerationNotSupported")},
      {group + R"(,"parameters":{"gid":1,"service":"other"}})", error("BadService")},
      {group + R"(,"parameters":{"gid":1,"service":"svc"},"oneway":true})", ""},
      {memberships + R"("svc","userName":"ayla","groupName":"staff_z"},"more":true})",
       error("NoRecordFound")},
      {memberships + R"("svc"}})", error("NoRecordFound")},
      {memberships + R"("other","userName":"ayla"}})", error("BadService")},
      {memberships + R"("svc","uid":70001}})", badParameter("uid")},
      {memberships + R"("svc","groupName":""}})", badParameter("groupName")},
      {memberships + R"("svc","groupName":"a\u007f"}})", "hang up"},
      {R"({"method":"org.varlink.service.GetInfo","parameters":null})",
       R"({"parameters":{"interfaces":["org.varlink.service","io.systemd.UserDatabase"],)"
       R"("product":"zonagent","url":"","vendor":"idshift","version":")" IDSHIFT_VERSION "\"}}"},
      {R"({"method":"a.b"})",
       R"({"error":"org.varlink.service.MethodNotFound","parameters":{"method":"a.b"}})"},
      {group + R"(,"parameters":null})", badParameter("service")},
      {group + R"(,"parameters":{"gid":1,"service":7}})", badParameter("service")},
      {user(R"("userName":"")"), badParameter("userName")},
      {user(R"("groupName":"g")"), badParameter("groupName")},
      {user(R"("uid":-1)"), badParameter("uid")},
      {user(R"("uid":4294967295)"), badParameter("uid")},
      // Messages that are no request.
      {"", "hang up"},
      {R"({"parameters":{}})", "hang up"},
      {R"({"method":7})", "hang up"},
      {R"({"method":"x","oneway":1})", "hang up"},
      {R"({"method":"x","oneway":true,"id":1})", "hang up"},
      {R"({"method":"x","parameters":[]})", "hang up"},
      {user(R"("userName":"a\u007f")"), "hang up"},
      {R"({"method":"x","parameters":{"p":)" + nested(orvs::wire::kMaxDepth - 1) + "}}", "hang up"},
      {R"({"method":"x")" + std::string(orvs::wire::kMaxRequestBytes, ' ') + "}", "hang up"},
  };
  for (const auto& [message, expected] : rows)
    EXPECT_EQ(reply(message), expected) << message.substr(0, 100);
}

// The log gets the reason of a "not available"; account names are no part of the reason.
TEST(Answer, NotAvailableComesWithItsReason) {
  MemoryZone zone;
  const auto parsed = orvs::wire::parseRequest(user(R"("uid":9,"userName":"gone")"));
  EXPECT_EQ(decide(parsed, "svc", zone).why, "it is gone");
  EXPECT_EQ(describe({orvs::wire::Kind::User, "a\"\\\n\xC3\xBC", 9}),
            R"(user "a\"\\\x0a\xc3\xbc", uid 9)");
  EXPECT_LT(describe({orvs::wire::Kind::Group, std::string(60'000, 'x'), {}}).size(), 300u);

  OncePerSecond reasons;
  const OncePerSecond::Clock::time_point now{};
  using std::chrono::milliseconds;
  EXPECT_TRUE(reasons.passes("a", now));
  EXPECT_FALSE(reasons.passes("a", now + milliseconds(999)));
  EXPECT_TRUE(reasons.passes("b", now + milliseconds(999)));
  EXPECT_TRUE(reasons.passes("a", now + milliseconds(1000)));
}
