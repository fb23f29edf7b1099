// For tests of the running agent: a zone of two users, ways to start an agent in front of it, and a
// client that sends bytes. Each way puts the agent's pid into `child`; TearDown() ends that agent.
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

// A client that sends and receives bytes. Connects at once, and waits for a server that starts.
class Client {
 public:
  Client() : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = {AF_UNIX, "/var/orvantadc/daemon"};
    const timeval sendTime = {0, 100'000};
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &sendTime, sizeof sendTime);
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
  // The next message, shortened: a user's uid, the last word of an error, or else the whole
  // message; "closed" after the last one.
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

  // Runs a Server in a child process.
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
  // Starts the program itself, on the fixed socket. `shell` is run first, in the same process.
  void startAgent(const std::string& shell = "") {
    child = startProgram({"sh", "-c", shell + " exec " + binaryPath("zonagent")});
  }
  // Starts the program as systemd does: the socket is passed to it, and no lock is held. Standard
  // error goes to /tmp/err.
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
  // Runs the program and waits for its end.
  static RunResult runAgent(const std::string& arguments = "") {
    RunOptions options;
    options.timeoutSeconds = 15;  // an agent that should have refused to start would serve for ever
    return runProgram({"sh", "-c", "exec " + binaryPath("zonagent") + " " + arguments}, options);
  }
  // Makes the agent reload and gives it time to do so.
  void hangUp() const {
    kill(child, SIGHUP);
    usleep(100'000);
  }
  int stop() { return child > 0 ? stopProgram(std::exchange(child, -1)).status : -1; }

  pid_t child = -1;
};
