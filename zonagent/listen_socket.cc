#include "zonagent/listen_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "zonagent/backend.h"

namespace zonagent {
namespace {

constexpr int kFirstPassed = 3;  // systemd passes descriptors from this number on

[[noreturn]] void fail(const std::string& what) {
  throw AgentError(what + ": " + strerror(errno));
}

bool ownedByTrusted(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

// Whoever can rename entries of the directory can exchange the socket for that of another agent.
void prepareDirectory(const std::string& directory) {
  std::error_code error;
  const mode_t before = umask(022);
  std::filesystem::create_directories(directory, error);
  umask(before);
  struct stat status = {};
  if (stat(directory.c_str(), &status) != 0)
    fail("cannot use the directory " + directory);
  const bool open = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  const bool sticky = (status.st_mode & S_ISVTX) != 0;
  if (!ownedByTrusted(status) || (open && !sticky))
    throw AgentError("others than root may change the directory " + directory);
}

UniqueFd takeLock(const std::string& path) {
  UniqueFd lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  struct stat status = {};
  if (!lock || fstat(lock.get(), &status) != 0)
    fail("cannot open the lock file " + path);
  if (!S_ISREG(status.st_mode) || !ownedByTrusted(status))
    throw AgentError("the lock file " + path +
                     " belongs to somebody else or is not a regular file");
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
    throw AgentError("another agent holds " + path);
  return lock;
}

// Only ECONNREFUSED proves that nobody listens: a full queue (EAGAIN) belongs to a living agent.
bool isAbandoned(const std::string& path, const sockaddr_un& address) {
  const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe)
    fail("cannot create a socket");
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno == EAGAIN)
    return false;
  if (errno != ECONNREFUSED)
    fail("cannot find out whether another agent listens on " + path);
  return true;
}

void removeStale(const std::string& path, const sockaddr_un& address) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT)
      return;
    fail("cannot look at " + path);
  }
  if (!S_ISSOCK(status.st_mode))
    throw AgentError(path + " is there and is not a socket");
  if (!isAbandoned(path, address))
    throw AgentError("another agent listens on " + path);
  if (unlink(path.c_str()) != 0)
    fail("cannot remove the stale socket " + path);
}

// How many descriptors systemd has passed to this process: 0, 1, or 2 for more.
int countPassed() {
  const char* pid = getenv("LISTEN_PID");
  const char* count = getenv("LISTEN_FDS");
  const bool ours = pid && count && pid == std::to_string(getpid());
  const std::string text = ours ? count : "0";
  unsetenv("LISTEN_PID");
  unsetenv("LISTEN_FDS");
  unsetenv("LISTEN_FDNAMES");
  if (text == "0")
    return 0;
  return text == "1" ? 1 : 2;
}

}  // namespace

std::unique_ptr<ListenSocket> ListenSocket::passed() {
  const int count = countPassed();
  if (count == 0)
    return nullptr;
  if (count > 1)
    throw AgentError("systemd has passed more than one socket");
  std::unique_ptr<ListenSocket> socket(new ListenSocket);
  socket->adopt(kFirstPassed);
  return socket;
}

ListenSocket::ListenSocket(const std::string& path) {
  bindAt(path);
}

ListenSocket::~ListenSocket() {
  struct stat now = {};
  // Our descriptor keeps the inode: no other socket can have its number yet.
  if (S_ISSOCK(bound.st_mode) && lstat(location.c_str(), &now) == 0 && now.st_dev == bound.st_dev &&
      now.st_ino == bound.st_ino)
    static_cast<void>(unlink(location.c_str()));
}

void ListenSocket::adopt(int descriptor) {
  int listening = 0;
  int type = 0;
  sockaddr_un address = {};
  socklen_t length = sizeof listening;
  socklen_t typeLength = sizeof type;
  socklen_t addressLength = sizeof address;
  const bool usable =
      getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) == 0 &&
      getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &typeLength) == 0 &&
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &addressLength) == 0 &&
      listening != 0 && type == SOCK_STREAM && address.sun_family == AF_UNIX;
  if (!usable)
    throw AgentError("the descriptor passed by systemd is not a listening local stream socket");
  if (address.sun_path[0] == '/')
    location.assign(address.sun_path, strnlen(address.sun_path, sizeof address.sun_path));
  fd.reset(descriptor);
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

void ListenSocket::bindAt(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path[0] != '/' || path.size() >= sizeof address.sun_path)
    throw AgentError("the socket's path must be absolute and at most 107 bytes long: " + path);
  memcpy(address.sun_path, path.data(), path.size());

  prepareDirectory(std::filesystem::path(path).parent_path());
  lock = takeLock(path + ".lock");
  removeStale(path, address);
  fd.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd)
    fail("cannot create a socket");
  const mode_t before = umask(0111);  // the socket is born with mode 0666
  const int failed = bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  umask(before);
  if (failed != 0)
    fail("cannot bind " + path);
  location = path;
  if (lstat(path.c_str(), &bound) != 0)
    fail("cannot look at " + path);
  if (listen(fd.get(), SOMAXCONN) != 0)
    fail("cannot listen on " + path);
}

}  // namespace zonagent
