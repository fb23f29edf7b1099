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

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <semaphore>
#include <set>
#include <thread>
#include <utility>

#include "services/unique_fd.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

struct Account {
  std::string name;
  uint32_t id = 0;
  uint32_t gid = 0;  // users alone
};

// One kind of account.
struct Table {
  std::vector<Account> accounts;

  const Account* byName(const std::string& name) const {
    for (const Account& account : accounts) {
      if (account.name == name)
        return &account;
    }
    return nullptr;
  }
  const Account* byId(uint32_t id) const {
    for (const Account& account : accounts) {
      if (account.id == id)
        return &account;
    }
    return nullptr;
  }
  void remove(const std::string& name) {
    std::erase_if(accounts, [&](const Account& account) { return account.name == name; });
  }
};

struct Plan {
  Fault fault = Fault::None;
  int times = -1;
};

struct Asked {
  bool isUser = true;
  std::optional<std::string> name;
  uint32_t id = 0;

  std::string text() const {
    if (name)
      return (isUser ? "user " : "group ") + *name;
    return (isUser ? "uid " : "gid ") + std::to_string(id);
  }
};

[[noreturn]] void die(const char* what) {
  perror(what);
  abort();
}

// Throws std::exception or std::string for what a strict agent hangs up on.
Asked readRequest(const std::string& message) {
  const Json request = Json::parse(message);
  for (const auto& item : request.items()) {
    if (!std::set<std::string>{"method", "parameters", "more", "oneway"}.contains(item.key()))
      throw "unknown key " + item.key();
  }
  const Json& parameters = request.at("parameters");
  if (!parameters.at("service").is_string())
    throw std::string("no service");
  const std::string method = request.at("method").get<std::string>();
  Asked asked;
  asked.isUser = method == "io.systemd.UserDatabase.GetUserRecord";
  if (!asked.isUser && method != "io.systemd.UserDatabase.GetGroupRecord")
    throw "unknown method " + method;
  const char* nameKey = asked.isUser ? "userName" : "groupName";
  if (parameters.size() != 2)
    throw std::string("not one question");
  if (parameters.contains(nameKey))
    asked.name = parameters.at(nameKey).get<std::string>();
  else
    asked.id = parameters.at(asked.isUser ? "uid" : "gid").get<uint32_t>();
  return asked;
}

std::string finished(const Json& object) {
  return object.dump() + '\0';
}

std::string errorReply(const std::string& name) {
  return finished({{"error", "io.systemd.UserDatabase." + name}, {"parameters", Json::object()}});
}

// The id as the faults bend it.
Json bentId(uint32_t id, Fault fault) {
  switch (fault) {
    case Fault::WrongId:
      return id + 1;
    case Fault::NegativeId:
      return -1;
    case Fault::FractionalId:
      return static_cast<double>(id) + 0.5;
    case Fault::BooleanId:
      return true;
    case Fault::NullId:
      return nullptr;
    case Fault::TextId:
      return std::to_string(id);
    case Fault::HugeId:
      return 4294967296u;
    case Fault::MinusOne:
      return 4294967295u;
    default:
      return id;
  }
}

std::string recordReply(bool isUser, const Account& account, Fault fault) {
  Json record = {{isUser ? "userName" : "groupName", account.name},
                 {"service", "net.orvantadc.Zone"}};
  if (fault == Fault::ControlInName)
    record[isUser ? "userName" : "groupName"] = account.name + "\n";
  if (isUser)
    record["gid"] = account.gid;
  record.erase(isUser ? "uid" : "gid");
  if (fault != Fault::MissingId)
    record[isUser ? "uid" : "gid"] = bentId(account.id, fault);
  std::string reply = finished({{"parameters", {{"record", record}, {"incomplete", false}}}});
  if (fault == Fault::DuplicateKeys)
    reply.replace(reply.find("\"record\":{"), 10, "\"record\":{\"gid\":7,\"gid\":7,");
  return reply;
}

bool appliesToConnection(Fault fault) {
  return fault == Fault::CloseUnread || fault == Fault::CloseAfterReply;
}

}  // namespace

// The thread's side. `mutex` guards the tables, the plans and the records of what happened.
class FakeZone::Server {
 public:
  explicit Server(std::string socketPath) : path(std::move(socketPath)) {}

  void bindSocket();
  void listenAs(uint32_t uid);
  void run();
  void stop();

  mutable std::mutex mutex;
  Table users;
  Table groups;
  std::map<std::string, std::string> aliases;
  std::map<std::string, Plan> plans;
  std::map<std::string, std::string> rawAnswers;
  std::vector<std::string> asked;
  int connectionCount = 0;
  std::thread thread;

 private:
  struct Peer {
    UniqueFd fd;
    std::string input;
  };

  void serve();
  void acceptOne();
  bool readFrom(Peer& peer);
  bool answerOne(Peer& peer, const std::string& message);
  bool sendReply(Peer& peer, const std::string& reply, Fault fault);
  Fault takeFault(const std::string& question);
  std::string replyTo(const Asked& question, Fault fault) const;

  std::string path;
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
  if (path.size() >= sizeof address.sun_path)
    die("fake zone: path too long");
  memcpy(address.sun_path, path.data(), path.size());
  if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    die("fake zone: bind");
  if (chmod(path.c_str(), 0666) != 0)
    die("fake zone: chmod");
}

// Peers see the effective uid of the thread that called listen(). The raw call changes this thread
// alone.
void FakeZone::Server::listenAs(uint32_t uid) {
  const uid_t own = geteuid();
  const bool other = uid != 0 && own == 0;
  if (other && syscall(SYS_setresuid, -1, uid, -1) != 0)
    die("fake zone: setresuid");
  if (listen(listener.get(), 16) != 0)
    die("fake zone: listen");
  if (other && syscall(SYS_setresuid, -1, own, -1) != 0)
    die("fake zone: setresuid back");
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
    const uint64_t one = 1;
    if (write(wakeUp.get(), &one, sizeof one) != sizeof one)
      die("fake zone: eventfd");
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
  if (!fd)
    return;
  bool keep = false;
  {
    const std::lock_guard guard(mutex);
    ++connectionCount;
    keep = plans[""].fault != Fault::CloseUnread;
  }
  if (!keep) {
    // Something must lie unread when the connection is closed.
    pollfd entry = {fd.get(), POLLIN, 0};
    poll(&entry, 1, 1000);
    return;
  }
  peers.push_back({std::move(fd), ""});
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

bool FakeZone::Server::answerOne(Peer& peer, const std::string& message) {
  Fault fault = Fault::None;
  std::string reply;
  {
    const std::lock_guard guard(mutex);
    try {
      const Asked question = readRequest(message);
      asked.push_back(question.text());
      fault = takeFault(question.text());
      reply = replyTo(question, fault);
    } catch (const std::string& why) {
      asked.push_back("malformed: " + why);
      return false;
    } catch (const std::exception& error) {
      asked.push_back(std::string("malformed: ") + error.what());
      return false;
    }
  }
  return sendReply(peer, reply, fault);
}

Fault FakeZone::Server::takeFault(const std::string& question) {
  auto found = plans.find(question);
  if (found == plans.end())
    found = plans.find("");
  if (found == plans.end() || found->second.times == 0)
    return Fault::None;
  if (found->second.times > 0)
    --found->second.times;
  return found->second.fault;
}

std::string FakeZone::Server::replyTo(const Asked& question, Fault fault) const {
  if (const auto raw = rawAnswers.find(question.text()); raw != rawAnswers.end())
    return raw->second;
  if (fault == Fault::ServiceNotAvailable)
    return errorReply("ServiceNotAvailable");
  if (fault == Fault::BadService)
    return errorReply("BadService");
  if (fault == Fault::Garbage)
    return std::string("{\"parameters\":}") + '\0';
  if (fault == Fault::Oversized)
    return std::string(2u << 20, ' ') + '\0';
  const Table& table = question.isUser ? users : groups;
  const Account* account = nullptr;
  if (!question.name) {
    account = table.byId(question.id);
  } else {
    const auto alias = aliases.find(*question.name);
    account = table.byName(alias == aliases.end() ? *question.name : alias->second);
  }
  if (!account || fault == Fault::NotFound)
    return errorReply("NoRecordFound");
  return recordReply(question.isUser, *account, fault);
}

// False when the connection is over.
bool FakeZone::Server::sendReply(Peer& peer, const std::string& reply, Fault fault) {
  const auto put = [&](const std::string& bytes) {
    return send(peer.fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  };
  switch (fault) {
    case Fault::CloseBeforeAnswer:
      return false;
    case Fault::CloseInsideAnswer:
      put(reply.substr(0, reply.size() / 2));
      return false;
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
  server->users.accounts.push_back({name, uid, gid});
  return *this;
}

FakeZone& FakeZone::group(const std::string& name, uint32_t gid) {
  const std::lock_guard guard(server->mutex);
  server->groups.accounts.push_back({name, gid, 0});
  return *this;
}

FakeZone& FakeZone::alias(const std::string& other, const std::string& name) {
  const std::lock_guard guard(server->mutex);
  server->aliases[other] = name;
  return *this;
}

FakeZone& FakeZone::removeUser(const std::string& name) {
  const std::lock_guard guard(server->mutex);
  server->users.remove(name);
  return *this;
}

FakeZone& FakeZone::removeGroup(const std::string& name) {
  const std::lock_guard guard(server->mutex);
  server->groups.remove(name);
  return *this;
}

FakeZone& FakeZone::misbehave(Fault fault, const std::string& question, int times) {
  if (appliesToConnection(fault) && !question.empty())
    abort();
  const std::lock_guard guard(server->mutex);
  server->plans[question] = {fault, times};
  return *this;
}

FakeZone& FakeZone::answerWith(const std::string& question, const std::string& bytes) {
  const std::lock_guard guard(server->mutex);
  server->rawAnswers[question] = bytes;
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
