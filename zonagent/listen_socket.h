// The socket on which the agent waits for its clients: made here, or handed over by systemd.
//
// Made here: the directory is created if needed (0755) and must not be open to others' tricks; a
// lock file beside the socket (PATH.lock) is held for as long as the agent lives, and only its
// holder replaces a stale socket. The socket has mode 0666: what it tells is as public as getent.
// All failures are AgentErrors. The destructor removes a socket made here, errors ignored.
#pragma once

#include <string>

#include "services/unique_fd.h"

namespace zonagent {

class ListenSocket {
 public:
  // The one systemd has passed in this process's environment, else one of its own at `path`. The
  // environment is cleared of it.
  explicit ListenSocket(const std::string& path);
  ~ListenSocket();
  ListenSocket(const ListenSocket&) = delete;
  ListenSocket& operator=(const ListenSocket&) = delete;

  int get() const { return fd.get(); }

 private:
  void adopt(int descriptor);
  void bindAt(const std::string& path);

  std::string ownPath;  // empty when systemd owns it
  UniqueFd lock;
  UniqueFd fd;
};

}  // namespace zonagent
