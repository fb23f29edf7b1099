// A zone of two users, agents of all kinds in front of it, and a client that speaks bytes.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"
#include "zonagent/agent_signals.h"
#include "zonagent/server.h"

inline constexpr const char* kPath = "/var/orvantadc/daemon";
inline constexpr const char* kFiles = "files:/etc/orvantadc/zone";
inline constexpr const char* kService = "net.orvantadc.Zone";
inline const std::string kNul(1, '\0');

inline std::string askFor(const std::string& name, const std::string& service = kService) {
  return R"({"method":"io.systemd.UserDatabase.GetUserRecord","parameters":{"service":")" +
         service + R"(","userName":")" + name + "\"}}" + kNul;
}
inline const std::string kAskAyla = askFor("ayla");

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
    setenv("LD_LIBRARY_PATH", BUILD_DIRECTORY, 1);
  }
  void TearDown() override {
    stop();
    SandboxTest::TearDown();
  }

  // Serves from a child process.
  void serve(const std::string& backend, const zonagent::ServerLimits& limits = {}) {
    child = fork();
    if (child != 0)
      return;
    [&]() noexcept {
      zonagent::prepareSignals();
      const zonagent::ListenSocket socket(kPath);
      zonagent::Options options;
      options.backend = backend;
      zonagent::ZoneSource source(options, zonagent::ZoneSource::AtStart::MustOpen);
      zonagent::Server(socket, source, limits).run();
    }();
    _exit(0);
  }
  // The program itself, on the fixed socket; to stay, and to end by itself. By a shell, whose words
  // say what the agent finds at its start.
  void startAgent(const std::string& shell = "") {
    child = startProgram({"sh", "-c", shell + " exec " + binaryPath("zonagent")});
  }
  // As systemd starts it: the socket is made by others, and no lock is held. It speaks to /tmp/err.
  void startAgentWithSocket() {
    child = fork();
    if (child != 0)
      return;
    // Never destroyed: exec follows, which closes the lock.
    const zonagent::ListenSocket made(kPath);
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
