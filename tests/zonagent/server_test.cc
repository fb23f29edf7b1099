#include "zonagent/server.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/support/sandbox.h"
#include "zonagent/admission.h"
#include "zonagent/agent_signals.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

using std::chrono::milliseconds;

constexpr const char* kPath = "/var/orvantadc/daemon";
constexpr const char* kFiles = "files:/etc/orvantadc/zone";
constexpr const char* kService = "net.orvantadc.Zone";
const std::string kNul(1, '\0');

std::string askFor(const std::string& name, const std::string& service = kService) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{"service":")" +
         service + R"(","userName":")" + name + "\"}}" + kNul;
}
const std::string kAskAyla = askFor("ayla");

// A client that speaks bytes.
class Client {
 public:
  Client() : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = {AF_UNIX, "/var/orvantadc/daemon"};
    const timeval sendTime = {0, 100'000};
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &sendTime, sizeof sendTime);
    // The server may still be starting.
    while (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      usleep(10'000);
  }
  // How many bytes went out before the server stopped taking them for 100 ms.
  size_t put(const std::string& bytes) {
    size_t sent = 0;
    ssize_t count = 0;
    while (sent < bytes.size() &&
           (count = send(fd.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL)) > 0)
      sent += static_cast<size_t>(count);
    return sent;
  }
  // The next message: a user's uid, the last word of an error, or all of it. "closed" at the end.
  std::string get() {
    size_t end = 0;
    while ((end = input.find('\0')) == std::string::npos) {
      char chunk[4096];
      const ssize_t got = recv(fd.get(), chunk, sizeof chunk, 0);
      if (got <= 0)
        return "closed";
      input.append(chunk, static_cast<size_t>(got));
    }
    std::string message = input.substr(0, end);
    input.erase(0, end + 1);
    for (const std::string key : {"\"uid\":", "{\"error\":\"io.systemd.UserDatabase."}) {
      if (const size_t at = message.find(key); at != std::string::npos)
        return message.substr(at + key.size(),
                              message.find_first_of(",\"", at + key.size()) - at - key.size());
    }
    return message;
  }
  std::string ask(const std::string& message) {
    put(message);
    return get();
  }

 private:
  UniqueFd fd;
  std::string input;
};

class ServerTest : public SandboxTest {
 protected:
  void arrange() override {
    writeFile("/etc/orvantadc/zone/passwd", "ayla:x:70001:70000:::\nbo:x:70002:70000:::\n");
    writeFile("/etc/orvantadc/zone/group", "staff_z:x:70000:\n");
    setenv("LD_LIBRARY_PATH", TOY_DIRECTORY, 1);
  }
  void TearDown() override {
    stop();
    SandboxTest::TearDown();
  }

  // Serves from a child process.
  void serve(const std::string& backend, const ServerLimits& limits = {}) {
    child = fork();
    if (child != 0)
      return;
    [&]() noexcept {
      prepareSignals();
      const ListenSocket socket(kPath);
      Server(socket, openBackend(backend, ""), kService, limits).run();
    }();
    _exit(0);
  }
  // The program itself, on the fixed socket; to stay, and to end by itself.
  // By a shell, whose words say what the agent finds at its start.
  void startAgent(const std::string& shell = "") {
    child = startProgram({"sh", "-c", shell + " exec " + binaryPath("zonagent")});
  }
  // As systemd starts it: the socket is made by others, and no lock is held. It speaks to /tmp/err.
  void startAgentWithSocket() {
    child = fork();
    if (child != 0)
      return;
    // Never destroyed: exec follows, which closes the lock.
    const ListenSocket made(kPath);
    const UniqueFd err(open("/tmp/err", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    dup2(err.get(), 2);
    dup2(made.get(), 3);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    execProgram({binaryPath("zonagent"), "--socket", "/tmp/unused"});
  }
  static RunResult runAgent(const std::string& arguments = "") {
    RunOptions options;
    options.timeoutSeconds = 15;  // one that should have refused serves for ever
    return runProgram({"sh", "-c", "exec " + binaryPath("zonagent") + " " + arguments}, options);
  }
  // The agent reloads, and has done so on return.
  void hangUp() const {
    kill(child, SIGHUP);
    usleep(100'000);
  }
  int stop() { return child > 0 ? stopProgram(std::exchange(child, -1)).status : -1; }

  pid_t child = -1;
};

}  // namespace

TEST(ServerAdmission, WhoGivesWayToWhom) {
  const auto at = [](int s) { return std::chrono::steady_clock::time_point() + milliseconds(s); };
  // Seats of users with ids from `uid` on, `count` of each, idle since 100, 99, ... or busy.
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
  // A crowd waits at the door.
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
  EXPECT_LT(taken, 40u);  // a byte now and then does not keep a connection

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
  EXPECT_LT(replies, sent / kAskAyla.size());  // it was given up with replies outstanding
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
  // Now the other worker as well. What takes no lookup is answered all the same.
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

// --- The program.

TEST_F(ServerTest, TheSettingsNameBackendServiceAndOnlineCheck) {
  addSetting("zonagent.backend = nss:toy");
  addSetting("agent.service = org.example.Zone");
  addSetting("zonagent.online.check = test -e /tmp/online");
  startAgent();
  Client client;
  EXPECT_EQ(client.ask(askFor("AYLA", "org.example.Zone")), "70001");
  const std::string absent = askFor("notfound", "org.example.Zone");
  EXPECT_EQ(client.ask(absent), "ServiceNotAvailable");
  writeFile("/tmp/online", "");
  kill(child, SIGHUP);  // makes it forget that it was offline
  usleep(100'000);
  EXPECT_EQ(client.ask(absent), "NoRecordFound");
}

TEST_F(ServerTest, OnlyTheHolderOfTheLockReplacesTheSocket) {
  serve(kFiles);
  Client client;
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  EXPECT_EQ(runAgent().err, "zonagent: another agent holds /var/orvantadc/daemon.lock\n");
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  kill(child, SIGKILL);
  stop();
  ASSERT_TRUE(exists(kPath));
  startAgent();
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  stop();

  writeFile(kPath, "precious");
  EXPECT_EQ(runAgent().err, "zonagent: /var/orvantadc/daemon is there and is not a socket\n");
  EXPECT_EQ(readFile(kPath), "precious");
  for (const mode_t mode : {0720U, 0702U}) {
    EXPECT_EQ(chmod("/var/orvantadc", mode), 0);
    EXPECT_EQ(runAgent().err,
              "zonagent: others than root may change the directory /var/orvantadc\n");
  }
}

TEST_F(ServerTest, TheSocketOfALivingAgentIsNeitherTakenNorRemoved) {
  startAgentWithSocket();
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  EXPECT_FALSE(exists("/tmp/unused"));
  const RunResult second = runAgent();
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "zonagent: another agent listens on /var/orvantadc/daemon\n");
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  // Nor while its queue is full.
  kill(child, SIGSTOP);
  const UniqueFd narrow(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = {AF_UNIX, "/var/orvantadc/narrow"};
  ASSERT_EQ(bind(narrow.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(narrow.get(), 0), 0);
  const UniqueFd first(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(connect(first.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(runAgent("--socket /var/orvantadc/narrow").err,
            "zonagent: another agent listens on /var/orvantadc/narrow\n");
  kill(child, SIGCONT);
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(exists(kPath));  // systemd's

  EXPECT_EQ(unlink(kPath), 0);
  startAgent();
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  EXPECT_EQ(rename("/var/orvantadc/narrow", kPath), 0);
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(exists(kPath));  // another's by now
}

TEST_F(ServerTest, SignalsThatComeWhileItStartsWaitAndABrokenPipeDoesNotEndIt) {
  const std::string settings = paths::kSettings;
  std::filesystem::remove(settings);
  ASSERT_EQ(mkfifo(settings.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo("/tmp/err", 0600), 0);
  UniqueFd reader(open("/tmp/err", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  startAgent("exec 2>/tmp/err;");
  {
    const UniqueFd held(open(settings.c_str(), O_WRONLY | O_CLOEXEC));  // it has begun to read
    kill(child, SIGHUP);
    writeFile("/etc/settings", "");
    EXPECT_EQ(rename("/etc/settings", settings.c_str()), 0);
  }
  reader.reset();
  Client client;
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  hangUp();  // which is told on standard error
  EXPECT_EQ(client.ask(kAskAyla), "70001");
}

TEST_F(ServerTest, TheOnlineCheckInheritsNothing) {
  recordLog();
  addSetting("zonagent.backend = nss:toy");
  addSetting("zonagent.online.check = /tmp/check");
  writeFile("/tmp/check",
            "#!/bin/bash\nls -l /proc/self/fd >/tmp/fds\n"
            "grep -E '^Sig(Blk|Ign)' /proc/self/status | grep -o '.......$' >/tmp/signals\n",
            0755);
  const UniqueFd extra(open("/dev/zero", O_RDONLY));  // NOLINT: inheritable on purpose
  for (const int inherited : {SIGUSR1, SIGCHLD})
    signal(inherited, SIG_IGN);
  child = startProgram({binaryPath("zonagent")});
  for (const int inherited : {SIGUSR1, SIGCHLD})
    signal(inherited, SIG_DFL);
  EXPECT_EQ(Client().ask(askFor("notfound")), "NoRecordFound");
  EXPECT_FALSE(contains(readFile("/tmp/fds"), "/dev/zero")) << readFile("/tmp/fds");
  EXPECT_EQ(readFile("/tmp/signals"), "0000000\n0000000\n");  // without those of the C library
}

TEST_F(ServerTest, ChecksAndRefusals) {
  writeFile("/etc/orvantadc/zone/passwd", "ayla:x:70001:70000:::\nbo:x:70001:70000:::\n");
  writeFile("/tmp/hang", "");
  const struct {
    const char* arguments;
    int status;
    std::vector<std::string> says;
  } rows[] = {
      {"--check ayla nope",
       0,
       {"backend: files:/etc/orvantadc/zone\n", "/etc/orvantadc/zone/passwd, 2 user(s)",
        "online: not checked\n", "user ayla: name ayla, uid 70001, gid 70000 (",
        "uid 70001 leads back to the same name", "nope: neither a user nor a group was found\n",
        "verdict: zonagent would serve this zone\n"}},
      {"--check bo", 0, {"uid 70001 leads to another name: ayla"}},
      {"--backend nss:toy --check staff_z",
       0,
       {"module: " TOY_DIRECTORY "/libnss_toy.so.2\n", "gid 70000 leads back to the same name"}},
      {"--backend nss:toy --check unavail",
       1,
       {"would not serve this zone: it does not tell about the user unavail\n"}},
      {"--backend nss:toy --check hang", 1, {"user hang: no answer (50"}},
      {"--backend ldap:x", 1, {"unknown backend \"ldap:x\""}},
      {"--backend nss:nowhere", 1, {"cannot load the NSS module: libnss_nowhere.so.2"}},
      {"--backend nss:../toy", 1, {"\"../toy\" is no name of an NSS module"}},
      {"--backend files:/nowhere", 1, {"/nowhere/passwd: No such file or directory"}},
      {"--socket relative", 1, {"the socket's path must be absolute"}},
      {"ayla", 2, {"names to look up need --check"}},
      {"--bogus", 2, {"usage: zonagent"}},
      {"--socket=", 2, {"--socket"}},
  };
  for (const auto& row : rows) {
    const RunResult result = runAgent(row.arguments);
    EXPECT_EQ(result.status, row.status) << result;
    for (const std::string& part : row.says)
      EXPECT_TRUE(contains(result.out + result.err, part)) << part << "\n" << result;
  }
  addSetting("zonagent.online.check = false");
  const RunResult offline = runAgent("--backend nss:toy --check");
  EXPECT_EQ(offline.status, 1);
  EXPECT_TRUE(contains(offline.out, "online: no, the online check fails\n")) << offline;
  // Signals end it, unlike one that serves.
  writeFile("/tmp/hang", "");
  EXPECT_EQ(runProgram({"timeout", "--preserve-status", "1", binaryPath("zonagent"), "--backend",
                        "nss:toy", "--check", "hang"})
                .status,
            128 + SIGTERM);
}
