// The socket on which the agent waits for its clients: made here, or handed over by systemd.
//
// Made here: the directory is created if needed (0755) and must not be open to others' tricks; a
// lock file beside the socket (PATH.lock) is held for as long as the agent lives. A socket that is
// there already is replaced by the lock's holder alone, and only when a connection to it is
// refused: an agent that systemd started holds no lock. The socket has mode 0666: what it tells is
// as public as getent. All failures are AgentErrors. The destructor removes a socket made here,
// unless the path leads to another one by then; errors are ignored.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "services/unique_fd.h"

namespace zonagent {

class ListenSocket {
 public:
  // The one that systemd has passed in this process's environment, which is cleared of it; null
  // when there is none.
  static std::unique_ptr<ListenSocket> passed();
  // One of its own.
  explicit ListenSocket(const std::string& path);
  ~ListenSocket();
  ListenSocket(const ListenSocket&) = delete;
  ListenSocket& operator=(const ListenSocket&) = delete;

  int get() const { return fd.get(); }
  // Where it listens; empty when systemd's has no path.
  const std::string& path() const { return location; }

 private:
  ListenSocket() = default;
  void adopt(int descriptor);
  void bindAt(const std::string& path);

  std::string location;
  struct stat bound = {};  // where the path led after the bind; without a type when systemd owns it
  UniqueFd lock;
  UniqueFd fd;
};

}  // namespace zonagent
