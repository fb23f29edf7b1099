// The program zonagent: its settings, its socket, its log, its inheritance, and --check and
// --reload.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/zonagent/server_fixture.h"

namespace {

class AgentTest : public ServerTest {};

}  // namespace

TEST_F(AgentTest, TheSettingsNameBackendServiceAndOnlineCheck) {
  addSetting("zonagent.backend = nss:toy");
  addSetting("agent.service = org.example.Zone");
  addSetting("zonagent.online.check = test -e /tmp/online");
  startAgent();
  Client client;
  const std::string ayla = askFor("AYLA", "org.example.Zone");
  const std::string absent = askFor("notfound", "org.example.Zone");
  EXPECT_EQ(client.ask(ayla), "ServiceNotAvailable");
  EXPECT_EQ(client.ask(absent), "ServiceNotAvailable");
  writeFile("/tmp/online", "");
  hangUp();  // drops the remembered "no"
  EXPECT_EQ(client.ask(absent), "NoRecordFound");
  EXPECT_EQ(client.ask(ayla), "70001");
  EXPECT_EQ(unlink("/tmp/online"), 0);
  EXPECT_EQ(client.ask(ayla), "70001");  // the window has not passed
  EXPECT_EQ(client.ask(absent), "ServiceNotAvailable");
  EXPECT_EQ(client.ask(ayla), "ServiceNotAvailable");
}

TEST_F(AgentTest, SighupTakesNewSettingsAndKeepsTheLastGoodOnes) {
  startAgent();
  Client client;
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  EXPECT_EQ(client.ask(askFor("big")), "NoRecordFound");
  for (const char* bad : {"no setting\n", "zonagent.backend = nss:winbind\n",
                          "zonagent.backend = files:/nowhere\n"}) {
    writeFile(paths::kSettings, bad);
    hangUp();
    EXPECT_EQ(client.ask(kAskAyla), "70001") << bad;
  }
  writeFile(paths::kSettings, "zonagent.backend = nss:toy\n");
  hangUp();
  EXPECT_EQ(client.ask(askFor("big")), "70001");
  // A lookup that waits for the former backend is answered by the new one.
  writeFile("/tmp/hang", "");
  client.put(askFor("hang"));
  usleep(100'000);
  writeFile(paths::kSettings, "agent.service = new\n");
  hangUp();
  EXPECT_EQ(client.get(), "BadService");
  EXPECT_EQ(client.ask(askFor("bo", "new")), "70002");
}

TEST_F(AgentTest, TheProgramThatAsksForAReloadEndsWhenTheReloadIsOver) {
  startAgent();
  Client client;
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  // A file with fewer accounts than before is used at once only after a reload.
  writeFile("/etc/orvantadc/zone/passwd", "bo:x:70002:70000:::\n");
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  kill(child, SIGSTOP);
  const pid_t asking = startProgram({binaryPath("zonagent"), "--reload", std::to_string(child)});
  usleep(200'000);
  EXPECT_EQ(waitpid(asking, nullptr, WNOHANG), 0) << "before the agent has taken the signal";
  kill(child, SIGCONT);
  int status = -1;
  EXPECT_EQ(waitpid(asking, &status, 0), asking);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(client.ask(kAskAyla), "NoRecordFound");
  EXPECT_EQ(runAgent("--socket /tmp/none --reload " + std::to_string(child)).err,
            "zonagent: /tmp/none: No such file or directory\n");
  EXPECT_EQ(runAgent("--reload 2000000000").err,
            "zonagent: cannot signal process 2000000000: No such process\n");
  for (const char* bad : {"--reload 0", "--reload -1", "--reload x", "--reload 1 ayla"})
    EXPECT_EQ(runAgent(bad).status, 2) << bad;
}

// --- The socket.

TEST_F(AgentTest, OnlyTheHolderOfTheLockReplacesTheSocket) {
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

TEST_F(AgentTest, TheSocketOfALivingAgentIsNeitherTakenNorRemoved) {
  startAgentWithSocket();
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  EXPECT_FALSE(exists("/tmp/unused"));
  const RunResult second = runAgent();
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "zonagent: another agent listens on /var/orvantadc/daemon\n");
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  // Nor is a socket replaced while its queue is full.
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
  EXPECT_TRUE(exists(kPath));  // a socket from systemd is systemd's to remove

  EXPECT_EQ(unlink(kPath), 0);
  startAgent();
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  EXPECT_EQ(rename("/var/orvantadc/narrow", kPath), 0);
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(exists(kPath));  // the path leads to another socket by now
}

TEST_F(AgentTest, WithASocketFromSystemdItStaysWhateverIsWrong) {
  const struct {
    const char* settings;
    const char* why;
  } rows[] = {
      {"zonagent.backend = nss:winbind\nagent.service = other\n", "set zonagent.online.check"},
      {"zonagent.backend = nss:nowhere\n", "cannot load the NSS module"},
      {"zonagent.backend = files:/nowhere\n", "/nowhere/passwd: No such file"},
      {"no setting\n", "orvantadc.conf:1: '=' character not found"},
      {"zonagent.online.seconds = 1.5\n", "must be a whole number from 0 to 3600, not \"1.5\""},
      {"zonagent.online.seconds = 3601\n", "must be a whole number from 0 to 3600"}};
  for (const auto& row : rows) {
    writeFile(paths::kSettings, row.settings);
    startAgentWithSocket();
    const std::string service = contains(row.settings, "other") ? "other" : kService;
    EXPECT_EQ(Client().ask(askFor("ayla", service)), "ServiceNotAvailable") << row.settings;
    EXPECT_TRUE(contains(readFile("/tmp/err"), row.why)) << readFile("/tmp/err");
    writeFile(paths::kSettings, "zonagent.online.seconds = 0");
    hangUp();
    EXPECT_EQ(Client().ask(kAskAyla), "70001") << row.settings;
    stop();
    EXPECT_EQ(unlink(kPath), 0);
  }
}

// --- What the agent inherits, passes on and logs.

TEST_F(AgentTest, SignalsThatComeWhileItStartsWaitAndABrokenPipeDoesNotEndIt) {
  const std::string settings = paths::kSettings;
  std::filesystem::remove(settings);
  ASSERT_EQ(mkfifo(settings.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo("/tmp/err", 0600), 0);
  UniqueFd reader(open("/tmp/err", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  startAgent("exec 2>/tmp/err;");
  {
    const UniqueFd held(
        open(settings.c_str(), O_WRONLY | O_CLOEXEC));  // the agent has begun to read
    kill(child, SIGHUP);
    writeFile("/etc/settings", "");
    EXPECT_EQ(rename("/etc/settings", settings.c_str()), 0);
  }
  reader.reset();
  Client client;
  EXPECT_EQ(client.ask(kAskAyla), "70001");
  hangUp();  // prints a line on standard error
  EXPECT_EQ(client.ask(kAskAyla), "70001");
}

TEST_F(AgentTest, TheOnlineCheckInheritsNothing) {
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
  EXPECT_EQ(Client().ask(kAskAyla), "70001");
  EXPECT_FALSE(contains(readFile("/tmp/fds"), "/dev/zero")) << readFile("/tmp/fds");
  EXPECT_EQ(readFile("/tmp/signals"), "0000000\n0000000\n");  // without those of the C library
}

TEST_F(AgentTest, EachLineIsInTheJournalOnceUnderItsOwnTag) {
  const UniqueFd syslog(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = {AF_UNIX, "/dev/log"};
  ASSERT_EQ(bind(syslog.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto logged = [&syslog] {
    std::string text;
    char record[4096];
    for (ssize_t got = 0; (got = recv(syslog.get(), record, sizeof record, 0)) > 0;)
      text += std::string(record, static_cast<size_t>(got)) + "\n";
    return text;
  };
  const std::string started =
      "zonagent: /var/orvantadc/daemon: answering from files:/etc/orvantadc/zone: 2 users, 1 groups";
  const std::string reloaded = "zonagent: /etc/orvantadc/zone: 2 users (was 2), 1 groups";
  const struct {
    bool journal;
    std::string settings;
    size_t logged;
    bool printed;
  } rows[] = {{true, "", 1, false}, {false, "", 1, true}, {true, "log.level = OFF\n", 0, true}};
  for (const auto& row : rows) {
    writeFile(paths::kSettings, row.settings);
    startAgent(std::string("exec 2>/tmp/err; ") +
               (row.journal ? "export JOURNAL_STREAM=$(stat -c %d:%i /tmp/err);" : ""));
    EXPECT_EQ(Client().ask(kAskAyla), "70001");
    hangUp();
    stop();
    const std::vector<std::string> both = {started, reloaded};
    EXPECT_EQ(linesOf(readFile("/tmp/err")), row.printed ? both : std::vector<std::string>{});
    const std::string lines = logged();
    EXPECT_EQ(countOf(lines, " zonagent: zonagent "), 2 * row.logged)
        << lines;  // the tag, then the logger
    EXPECT_EQ(countOf(lines, started), row.logged) << lines;
    EXPECT_EQ(countOf(lines, reloaded), row.logged) << lines;
  }
  // A "not available" is logged with the account and the reason.
  writeFile(paths::kSettings, "zonagent.backend = nss:toy\n");
  startAgent("exec 2>/tmp/err;");
  Client client;
  for (const char* name : {"unavail", "un\\u00e4vail", "tryagain", "unavail"})
    client.ask(askFor(name));
  stop();
  std::string lines = logged();
  EXPECT_TRUE(contains(lines, "nss:toy: no online check")) << lines;
  EXPECT_TRUE(contains(lines, "user \"tryagain\": not available: the module says TRYAGAIN"));
  EXPECT_EQ(countOf(lines, "user \"unavail\": not available: the module says UNAVAIL"), 1u)
      << lines;
  EXPECT_EQ(unlink("/dev/log"), 0);
}

TEST_F(AgentTest, ChecksAndRefusals) {
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
        "uid 70001 leads back to the same name", "group ayla: not found (",
        "user nope: not found (", "group nope: not found (",
        "verdict: zonagent would serve this zone\n"}},
      {"--check bo", 0, {"uid 70001 leads to another name: ayla"}},
      {"--backend nss:toy --check staff_z",
       0,
       {"module: " BUILD_DIRECTORY "/libnss_toy.so.2\n", "gid 70000 leads back to the same name"}},
      {"--backend nss:toy --check unavail",
       1,
       {"user unavail: no answer, the module says UNAVAIL",
        "would not serve this zone: no answer about the user unavail\n"}},
      {"--backend nss:toy --check hang", 1, {"user hang: no answer, the lookup took too long (50"}},
      {"--backend ldap:x", 1, {"unknown backend \"ldap:x\""}},
      {"--backend nss:sss", 1, {"zonagent: nss:sss ", "set zonagent.online.check"}},
      {"--backend nss:winbind --check", 1, {"set zonagent.online.check"}},
      {"--backend nss:nowhere", 1, {"cannot load the NSS module: libnss_nowhere.so.2"}},
      {"--backend nss:../toy", 1, {"\"../toy\" is not the name of an NSS module"}},
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
  writeFile(paths::kSettings, "zonagent.online.check = false\n");
  const RunResult offline = runAgent("--backend nss:toy --check");
  EXPECT_EQ(offline.status, 1);
  EXPECT_TRUE(contains(offline.out, "online: no, the online check fails with status 1\n"));
  writeFile(paths::kSettings, "zonagent.online.check = none\n");
  EXPECT_TRUE(contains(runAgent("--backend nss:winbind --check").err, "cannot load the NSS"));
  EXPECT_TRUE(contains(runAgent("--backend nss:toy --check").out, "online: not checked\n"));
  // A signal ends --check at once, even while a module hangs.
  writeFile("/tmp/hang", "");
  EXPECT_EQ(runProgram({"timeout", "--preserve-status", "1", binaryPath("zonagent"), "--backend",
                        "nss:toy", "--check", "hang"})
                .status,
            128 + SIGTERM);
}
