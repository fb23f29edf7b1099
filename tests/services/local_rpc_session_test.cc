#include "services/agent/local_rpc_session.h"

#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "services/agent/rpc_deadline.h"
#include "services/exceptions.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"

namespace {

using orvs::LocalRpcSession;

// The result of a request: the record, or class and text of the exception.
template <typename Request>
std::string outcome(const Request& request) {
  try {
    return request();
  } catch (const orvs::Base_Exception& error) {
    EXPECT_EQ(error.rc(), -1);
    return std::string(error.className()).substr(6) + ": " + error.what();
  }
}

// `whom` is a name or a uid.
template <typename Whom>
std::string user(LocalRpcSession& session, const Whom& whom) {
  return outcome([&] {
    const auto found = session.getUser(whom, orvs::UNIX_ONLY);
    return found->unixName + ":" + std::to_string(found->uid) + ":" + std::to_string(found->gid);
  });
}

std::string connectOutcome(const std::string& path = paths::kAgentSocket) {
  return outcome([&] {
    const LocalRpcSession session(path, false, false);
    return std::string("connected");
  });
}

class RpcSession : public SandboxTest {
 protected:
  void arrange() override { zone.user("ayla", 70001, 70000); }

  FakeZone zone;
};

}  // namespace

TEST_F(RpcSession, EachConnectFailureHasItsOwnText) {
  const std::string path = paths::kAgentSocket;
  EXPECT_EQ(connectOutcome(), "IOException: There is no agent socket at " + path + ".");
  zone.startRefusing();
  EXPECT_EQ(connectOutcome(), "IOException: No agent listens on " + path + ".");
  zone.stop();
  zone.start(12345);
  EXPECT_EQ(connectOutcome(),
            "IOException: The agent on " + path + " runs as uid 12345, which is not trusted.");
  RunOptions asTheAgent;
  asTheAgent.uid = 12345;
  EXPECT_EQ(runInChild([] { return connectOutcome() == "connected" ? 0 : 1; }, asTheAgent).status,
            0);
  const std::string tooLong = "/var/" + std::string(200, 'x');
  EXPECT_EQ(connectOutcome(tooLong),
            "IOException: The agent's socket path is too long: " + tooLong);
}

TEST_F(RpcSession, ImpossibleNamesAndIdsAreNotAskedFor) {
  zone.start();
  LocalRpcSession session(paths::kAgentSocket, false, false);
  for (const std::string& name : {std::string(), std::string("a\tb"), std::string(70'000, 'x')})
    EXPECT_TRUE(user(session, name).starts_with("NotFoundException: ")) << name.substr(0, 9);
  EXPECT_EQ(user(session, 4294967295u), "NotFoundException: The zone has no user 4294967295.");
  EXPECT_EQ(user(session, "m\xFC"), "IOException: The name of user \"m\xFC\" is not UTF-8.");
  EXPECT_TRUE(zone.requests().empty());
  // A long text of an exception is cut to its buffer.
  EXPECT_EQ(user(session, std::string(2000, 'x')).size(), strlen("NotFoundException: ") + 511);
}

TEST_F(RpcSession, AnswersThatEndTheRun) {
  const std::string broken = "ConnectionBrokenException: the agent";
  const std::string senseless = "ConnectionBrokenException: the answer about user ";
  const struct {
    Fault fault;
    bool byId;
    std::string expected;
  } rows[] = {
      {Fault::CloseBeforeAnswer, false, broken + " closed the connection before it answered"},
      {Fault::CloseInsideAnswer, false, broken + " closed the connection inside an answer"},
      {Fault::CloseUnread, false, broken + " closes connections without reading from them"},
      {Fault::Hang, false, broken + " does not answer in time"},
      {Fault::Oversized, false, broken + "'s answer is too long"},
      {Fault::ExtraAnswer, false, broken + " sent more than one answer"},
      {Fault::Garbage, false, senseless + "\"ayla\" makes no sense: it is not JSON"},
      {Fault::WrongId, false, "ayla:70002:70000"},
      {Fault::WrongId, true, senseless + "70001 is about another id"},
      {Fault::MissingId, false, "NotFoundException: The zone has no user \"ayla\"."},
      {Fault::ServiceNotAvailable, true,
       "IOException: The agent cannot tell about user 70001: "
       "io.systemd.UserDatabase.ServiceNotAvailable"},
      {Fault::Slow, false, "ayla:70001:70000"},
  };
  for (const auto& row : rows) {
    orvs::internal::requestDeadline =
        std::chrono::milliseconds(row.fault == Fault::Hang ? 300 : 10'000);
    zone.misbehave(row.fault);
    zone.start();
    LocalRpcSession session(paths::kAgentSocket, false, false);
    EXPECT_EQ(row.byId ? user(session, 70001u) : user(session, "ayla"), row.expected);
    zone.stop();
  }
}

TEST_F(RpcSession, ReconnectsWhenTheConnectionWasClosedOrAnAnswerIsLate) {
  zone.misbehave(Fault::CloseAfterReply);
  zone.start();
  LocalRpcSession session(paths::kAgentSocket, false, false);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(user(session, "ayla"), "ayla:70001:70000");
    usleep(20'000);  // let the fake zone close first
  }
  EXPECT_EQ(zone.connections(), 3);

  zone.user("bo", 70002, 70000).misbehave(Fault::None).misbehave(Fault::Hang, "user ayla");
  orvs::internal::requestDeadline = std::chrono::milliseconds(300);
  EXPECT_TRUE(user(session, "ayla").starts_with("ConnectionBrokenException: "));
  EXPECT_EQ(user(session, "bo"), "bo:70002:70000");
  EXPECT_EQ(user(session, 70002u), "bo:70002:70000");
  EXPECT_EQ(zone.connections(), 5);  // a connection that works is kept
}
