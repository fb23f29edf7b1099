#include "tests/support/fake_zone.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <semaphore>
#include <thread>
#include <utility>

#include "services/unique_fd.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

struct Account {
  bool isUser = true;
  std::string name;
  uint32_t id = 0;
  uint32_t gid = 0;  // users alone
};

void check(bool done, const char* what) {
  if (done)
    return;
  std::perror(what);
  std::abort();
}

// The question in a request, in words. Throws for what a strict agent hangs up on.
std::string readQuestion(const std::string& message) {
  const Json request = Json::parse(message);
  const Json& parameters = request.at("parameters");
  const bool isUser = request.at("method") == "io.systemd.UserDatabase.GetUserRecord";
  const char* nameKey = isUser ? "userName" : "groupName";
  const char* idKey = isUser ? "uid" : "gid";
  const bool byName = parameters.contains(nameKey);
  const bool isGroup = request.at("method") == "io.systemd.UserDatabase.GetGroupRecord";
  if (request.size() != 2 || parameters.size() != 2 || !parameters.at("service").is_string() ||
      isUser == isGroup)
    throw std::invalid_argument("not one plain question");
  if (byName)
    return (isUser ? "user " : "group ") + parameters.at(nameKey).get<std::string>();
  return std::string(idKey) + " " + std::to_string(parameters.at(idKey).get<uint32_t>());
}

std::string finished(const Json& object) {
  return object.dump() + '\0';
}

std::string errorReply(const std::string& name) {
  return finished({{"error", "io.systemd.UserDatabase." + name}, {"parameters", Json::object()}});
}

std::string recordReply(const Account& account, Fault fault) {
  Json record = {{account.isUser ? "userName" : "groupName", account.name},
                 {"service", "net.orvantadc.Zone"}};
  if (account.isUser)
    record["gid"] = account.gid;
  if (fault != Fault::MissingId)
    record[account.isUser ? "uid" : "gid"] = account.id + (fault == Fault::WrongId ? 1 : 0);
  return finished({{"parameters", {{"record", record}, {"incomplete", false}}}});
}

}  // namespace

// The thread's side. `mutex` guards the tables and the records of what happened.
class FakeZone::Server {
 public:
  explicit Server(std::string socketPath) : path(std::move(socketPath)) {}

  void bindSocket();
  void listenAs(uint32_t uid);
  void run();
  void stop();

  mutable std::mutex mutex;
  std::vector<Account> accounts;
  std::map<std::string, std::string> aliases;
  std::map<std::string, Fault> faults;  // by question
  std::vector<std::string> asked;
  int connectionCount = 0;

 private:
  struct Peer {
    UniqueFd fd;
    std::string input;
  };

  void serve();
  void acceptOne();
  bool readFrom(Peer& peer);
  bool answerOne(const Peer& peer, const std::string& message);
  Fault faultFor(const std::string& question) const;
  const Account* find(const std::string& question) const;

  std::string path;
  std::thread thread;
  UniqueFd listener;
  UniqueFd wakeUp;
  std::vector<Peer> peers;
  // Not a local of the thread: in a forked child, which has no such thread, it would look leaked.
  std::vector<pollfd> entries;
  std::binary_semaphore settled{0};  // the thread has come to its first poll
};

void FakeZone::Server::bindSocket() {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  static_cast<void>(unlink(path.c_str()));
  listener.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  check(path.size() < sizeof address.sun_path, "fake zone: path");
  memcpy(address.sun_path, path.data(), path.size());
  check(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0,
        "fake zone: bind");
  check(chmod(path.c_str(), 0666) == 0, "fake zone: chmod");
}

// Peers see the effective uid of the thread that called listen(). The raw call changes this thread
// alone.
void FakeZone::Server::listenAs(uint32_t uid) {
  check(syscall(SYS_setresuid, -1, uid, -1) == 0, "fake zone: setresuid");
  check(listen(listener.get(), 16) == 0, "fake zone: listen");
  check(syscall(SYS_setresuid, -1, 0, -1) == 0, "fake zone: setresuid back");
}

void FakeZone::Server::run() {
  wakeUp.reset(eventfd(0, EFD_CLOEXEC));
  // Signals are for the code under test.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread = std::thread([this] { serve(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  // A test may fork next. A thread that is still starting could hold a lock of the allocator, and
  // the child would wait for it for ever.
  settled.acquire();
}

void FakeZone::Server::stop() {
  if (thread.joinable()) {
    check(eventfd_write(wakeUp.get(), 1) == 0, "fake zone: eventfd");
    thread.join();
  }
  peers.clear();
  if (listener)
    static_cast<void>(unlink(path.c_str()));
  listener.reset();
}

void FakeZone::Server::serve() {
  bool announced = false;
  for (;;) {
    entries = {{wakeUp.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
    for (const Peer& peer : peers)
      entries.push_back({peer.fd.get(), POLLIN, 0});
    if (!std::exchange(announced, true))
      settled.release();
    if (poll(entries.data(), entries.size(), -1) < 0)
      continue;
    if (entries[0].revents != 0)
      return;
    for (size_t i = 2; i < entries.size(); ++i) {
      if (entries[i].revents != 0 && !readFrom(peers[i - 2]))
        peers[i - 2].fd.reset();
    }
    std::erase_if(peers, [](const Peer& peer) { return !peer.fd; });
    if (entries[1].revents != 0)
      acceptOne();
  }
}

void FakeZone::Server::acceptOne() {
  UniqueFd fd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  const std::lock_guard guard(mutex);
  ++connectionCount;
  if (faultFor("") != Fault::CloseUnread) {
    peers.push_back({std::move(fd), ""});
    return;
  }
  // Something must lie unread when the connection is closed.
  pollfd entry = {fd.get(), POLLIN, 0};
  poll(&entry, 1, 1000);
}

// False when the connection is over.
bool FakeZone::Server::readFrom(Peer& peer) {
  char chunk[4096];
  const ssize_t got = recv(peer.fd.get(), chunk, sizeof chunk, 0);
  if (got <= 0)
    return false;
  peer.input.append(chunk, static_cast<size_t>(got));
  for (size_t end = peer.input.find('\0'); end != std::string::npos; end = peer.input.find('\0')) {
    const std::string message = peer.input.substr(0, end);
    peer.input.erase(0, end + 1);
    if (!answerOne(peer, message))
      return false;
  }
  return true;
}

Fault FakeZone::Server::faultFor(const std::string& question) const {
  const auto found = faults.find(question);
  if (found != faults.end())
    return found->second;
  return question.empty() ? Fault::None : faultFor("");
}

const Account* FakeZone::Server::find(const std::string& question) const {
  const size_t blank = question.find(' ');
  const std::string kind = question.substr(0, blank);
  const auto alias = aliases.find(question.substr(blank + 1));
  const std::string key = alias == aliases.end() ? question.substr(blank + 1) : alias->second;
  const bool isUser = kind == "user" || kind == "uid";
  const auto found = std::ranges::find_if(accounts, [&](const Account& account) {
    const bool byId = kind == "uid" || kind == "gid";
    return account.isUser == isUser && (byId ? std::to_string(account.id) : account.name) == key;
  });
  return found == accounts.end() ? nullptr : &*found;
}

// False when the connection is over.
bool FakeZone::Server::answerOne(const Peer& peer, const std::string& message) {
  const std::lock_guard guard(mutex);
  try {
    asked.push_back(readQuestion(message));
  } catch (const std::exception& error) {
    asked.push_back(std::string("malformed: ") + error.what());
    return false;
  }
  const auto put = [&peer](const std::string& bytes) {
    return send(peer.fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  };
  const Account* account = find(asked.back());
  const Fault fault = faultFor(asked.back());
  const std::string reply = account ? recordReply(*account, fault) : errorReply("NoRecordFound");
  switch (fault) {
    case Fault::CloseBeforeAnswer:
      return false;
    case Fault::CloseInsideAnswer:
      put(reply.substr(0, reply.size() / 2));
      return false;
    case Fault::Garbage:
      return put(std::string("{\"parameters\":}") + '\0');
    case Fault::Oversized:
      return put(std::string(2u << 20, ' ') + '\0');
    case Fault::ServiceNotAvailable:
      return put(errorReply("ServiceNotAvailable"));
    case Fault::Hang:
      return true;
    case Fault::Slow:
      for (const char byte : reply) {
        put(std::string(1, byte));
        usleep(500);
      }
      return true;
    case Fault::ExtraAnswer:
      return put(reply + reply);
    case Fault::CloseAfterReply:
      put(reply);
      return false;
    default:
      return put(reply);
  }
}

FakeZone::FakeZone(std::string socketPath)
    : server(std::make_unique<Server>(std::move(socketPath))) {}

FakeZone::~FakeZone() {
  stop();
}

FakeZone& FakeZone::user(const std::string& name, uint32_t uid, uint32_t gid) {
  const std::lock_guard guard(server->mutex);
  std::erase_if(server->accounts, [&](const Account& a) { return a.isUser && a.name == name; });
  server->accounts.push_back({true, name, uid, gid});
  return *this;
}

FakeZone& FakeZone::group(const std::string& name, uint32_t gid) {
  const std::lock_guard guard(server->mutex);
  std::erase_if(server->accounts, [&](const Account& a) { return !a.isUser && a.name == name; });
  server->accounts.push_back({false, name, gid, 0});
  return *this;
}

FakeZone& FakeZone::alias(const std::string& other, const std::string& name) {
  const std::lock_guard guard(server->mutex);
  server->aliases[other] = name;
  return *this;
}

FakeZone& FakeZone::misbehave(Fault fault, const std::string& question) {
  const std::lock_guard guard(server->mutex);
  server->faults[question] = fault;
  return *this;
}

void FakeZone::start(uint32_t listenUid) {
  server->bindSocket();
  server->listenAs(listenUid);
  server->run();
}

void FakeZone::startRefusing() {
  server->bindSocket();
}

void FakeZone::stop() {
  server->stop();
}

std::vector<std::string> FakeZone::requests() const {
  const std::lock_guard guard(server->mutex);
  return server->asked;
}

int FakeZone::connections() const {
  const std::lock_guard guard(server->mutex);
  return server->connectionCount;
}
