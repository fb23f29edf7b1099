#include "zonagent/reload_request.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "services/unique_fd.h"
#include "zonagent/backend.h"

namespace zonagent {
namespace {

constexpr timeval kPatience = {60, 0};  // systemd waits longer for a reload
// Sent with its NUL byte, which ends a message.
constexpr char kAnyRequest[] = "{\"method\":\"org.varlink.service.GetInfo\"}";

void require(bool holds, const std::string& what) {
  if (!holds)
    throw AgentError(what + ": " + strerror(errno));
}

}  // namespace

void requestReload(pid_t agent, const std::string& socketPath) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (socketPath.size() >= sizeof address.sun_path)
    throw AgentError("the socket's path is too long: " + socketPath);
  memcpy(address.sun_path, socketPath.data(), socketPath.size());
  require(kill(agent, SIGHUP) == 0, "cannot signal process " + std::to_string(agent));

  const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  for (const int direction : {SO_SNDTIMEO, SO_RCVTIMEO})
    require(setsockopt(fd.get(), SOL_SOCKET, direction, &kPatience, sizeof kPatience) == 0,
            "cannot make a socket");
  require(connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
              send(fd.get(), kAnyRequest, sizeof kAnyRequest, MSG_NOSIGNAL) > 0,
          socketPath);
  char reply = 0;
  const ssize_t got = recv(fd.get(), &reply, 1, 0);
  require(got >= 0, socketPath);
  if (got == 0)
    throw AgentError(socketPath + ": the agent has hung up");
}

}  // namespace zonagent
