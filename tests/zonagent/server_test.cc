// The agent's loop, and admission, which decides whom the loop lets in.
#include "zonagent/server.h"

#include <gtest/gtest.h>

#include "tests/zonagent/server_fixture.h"
#include "zonagent/admission.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

using std::chrono::milliseconds;

}  // namespace

TEST(ServerAdmission, WhoGivesWayToWhom) {
  const auto at = [](int s) { return std::chrono::steady_clock::time_point() + milliseconds(s); };
  // `users` users with ids from `uid` on, each with `count` seats, idle since 100, 99, ... or busy.
  struct Seats {
    uid_t uid;
    int users, count;
    bool idle = true;
  };
  const struct {
    uid_t uid;
    std::vector<Seats> seats;
    bool welcome;
    std::optional<size_t> givesWay = {};
  } rows[] = {
      {1000, {{1000, 1, 15}, {1001, 7, 16}}, true},
      {1000, {{1000, 1, 16}, {0, 1, 64}}, true, 15},
      {1000, {{1000, 1, 16, false}, {1001, 1, 1}}, false},
      {1009, {{1000, 1, 15}, {1001, 6, 16}, {1007, 1, 17}}, true, 127},
      {1009, {{1000, 8, 16}}, true, 15},
      {1009, {{1000, 8, 16, false}, {0, 1, 63}}, false},
      {1009, {{1000, 7, 16, false}, {1007, 1, 15, false}, {1008, 1, 1}}, true, 127},
      {0, {{0, 1, 63}, {1000, 8, 16}}, true},
      {0, {{0, 1, 64}, {1000, 8, 16}}, true, 63},
      {0, {{0, 1, 64, false}, {1000, 1, 1}}, false},
  };
  for (const auto& row : rows) {
    std::vector<Seat> seats;
    for (const Seats& some : row.seats) {
      for (int i = 0; i < some.users * some.count; ++i)
        seats.push_back(
            {some.uid + static_cast<uid_t>(i / some.count), some.idle, at(100 - i % some.count)});
    }
    const Admission admission = admit(row.uid, seats);
    EXPECT_EQ(admission.welcome, row.welcome) << row.uid << " " << row.seats[0].uid;
    EXPECT_EQ(admission.givesWay, row.givesWay) << row.uid << " " << row.seats[0].uid;
  }
}

TEST_F(ServerTest, IdleClientsGiveWayAndThoseThatWaitForAnAnswerDoNot) {
  writeFile("/tmp/hang", "");
  ServerLimits limits;
  limits.lookup = milliseconds(3000);
  serve("nss:toy", limits);
  std::vector<Client> clients(1);
  clients[0].put(askFor("hang"));
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  while (clients.size() < 65)
    EXPECT_EQ(clients.emplace_back().ask(kAskAyla), "70001");
  EXPECT_EQ(clients[1].get(), "closed");
  EXPECT_EQ(clients[2].ask(kAskAyla), "70001");
  EXPECT_EQ(unlink("/tmp/hang"), 0);
  EXPECT_EQ(clients[0].get(), "70001");
  // A hundred clients connect while the agent is stopped.
  kill(child, SIGSTOP);
  std::vector<Client> crowd(100);
  kill(child, SIGCONT);
  EXPECT_EQ(crowd[99].ask(kAskAyla), "70001");
}

TEST_F(ServerTest, MessagesMayComeInPiecesAndInHeapsButMustMakeSense) {
  serve(kFiles);
  Client client;
  for (const char byte : kAskAyla)
    client.put(std::string(1, byte));
  EXPECT_EQ(client.get(), "70001");
  client.put(kAskAyla + askFor("bo") + askFor("nobody") + kAskAyla.substr(0, 9));
  EXPECT_EQ(client.get(), "70001");
  EXPECT_EQ(client.get(), "70002");
  EXPECT_EQ(client.get(), "NoRecordFound");
  for (const std::string& bytes : {"hello" + kNul, std::string(70'000, ' ')})
    EXPECT_EQ(Client().ask(bytes), "closed") << bytes.substr(0, 5);
  EXPECT_EQ(client.ask(kAskAyla.substr(9)), "70001");
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(exists(kPath));
}

TEST_F(ServerTest, IdleSlowAndDeafClientsAreShutOut) {
  ServerLimits limits;
  limits.idle = limits.send = milliseconds(300);
  serve(kFiles, limits);
  EXPECT_EQ(Client().get(), "closed");

  Client slow;
  size_t taken = 0;
  for (const char byte : kAskAyla.substr(0, 40)) {
    taken += slow.put(std::string(1, byte));
    usleep(20'000);
  }
  EXPECT_LT(taken, 40u);  // single bytes do not prolong the deadline

  Client deaf;
  std::string heap;
  for (int i = 0; i < 40'000; ++i)
    heap += kAskAyla;
  const size_t sent = deaf.put(heap);
  EXPECT_LT(sent, heap.size());
  usleep(500'000);
  size_t replies = 0;
  while (deaf.get() == "70001")
    ++replies;
  EXPECT_LT(replies, sent / kAskAyla.size());  // the agent hung up with replies unsent
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
}

TEST_F(ServerTest, AFrozenModuleFreezesNobodyAndTheAgentRecovers) {
  writeFile("/tmp/hang", "");
  ServerLimits limits;
  limits.lookup = milliseconds(300);
  limits.workers = 2;
  serve("nss:toy", limits);
  Client stuck;
  stuck.put(askFor("hang"));
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  stuck.put(kAskAyla);  // waits until the first is answered
  EXPECT_EQ(stuck.get(), "ServiceNotAvailable");
  EXPECT_EQ(stuck.get(), "70001");
  // Now both workers hang. Requests that need no lookup are answered all the same.
  EXPECT_EQ(Client().ask(askFor("hang")), "ServiceNotAvailable");
  const std::string silent = kAskAyla.substr(0, kAskAyla.size() - 2) + R"(,"oneway":true})" + kNul;
  EXPECT_EQ(stuck.ask(silent + R"({"method":"x"})" + kNul),
            R"({"error":"org.varlink.service.MethodNotFound","parameters":{"method":"x"}})");
  EXPECT_EQ(stuck.ask(kAskAyla), "ServiceNotAvailable");
  EXPECT_EQ(unlink("/tmp/hang"), 0);
  usleep(200'000);
  EXPECT_EQ(stuck.ask(askFor("notfound")), "NoRecordFound");  // no late answer
  EXPECT_EQ(stuck.ask(kAskAyla), "70001");
  EXPECT_EQ(stop(), 0);
}
