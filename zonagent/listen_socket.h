// The socket on which the agent waits for its clients: received from systemd, or made by the agent.
//
// For a socket of its own the agent creates the directory if needed (0755) and refuses one in which
// others could exchange the socket. The agent holds a lock on PATH.lock for as long as it lives. A
// socket that stands at PATH already is replaced only by the lock's holder, and only when
// connect() is refused: an agent with a socket from systemd serves without the lock. The socket has
// mode 0666, because the answers are as public as those of getent. All failures are AgentErrors.
// The destructor removes a socket that the agent made, unless PATH leads to another one by then;
// errors are ignored.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "services/unique_fd.h"

namespace zonagent {

class ListenSocket {
 public:
  // The socket that systemd has passed to this process, or null. Clears systemd's variables from
  // the environment.
  static std::unique_ptr<ListenSocket> passed();
  // Makes a socket.
  explicit ListenSocket(const std::string& path);
  ~ListenSocket();
  ListenSocket(const ListenSocket&) = delete;
  ListenSocket& operator=(const ListenSocket&) = delete;

  int get() const { return fd.get(); }
  // The socket's path; empty when a socket from systemd has none.
  const std::string& path() const { return location; }

 private:
  ListenSocket() = default;
  void adopt(int descriptor);
  void bindAt(const std::string& path);

  std::string location;
  struct stat bound = {};  // the socket that the agent made; all zero for one from systemd
  UniqueFd lock;
  UniqueFd fd;
};

}  // namespace zonagent
