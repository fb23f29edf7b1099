#include "tests/support/fake_zone.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/support/files.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

const std::string kInterface = "io.systemd.UserDatabase.";

// The question of a request, in words. Throws when the request is not one plain question.
std::string readQuestion(const std::string& message) {
  const Json request = Json::parse(message);
  const Json& parameters = request.at("parameters");
  const bool isUser = request.at("method") == kInterface + "GetUserRecord";
  const std::string kind = isUser ? "user" : "group";
  const bool byName = parameters.contains(kind + "Name");
  const std::string key = byName ? kind + "Name" : isUser ? "uid" : "gid";
  const Json plain = {
      {"method", kInterface + (isUser ? "GetUserRecord" : "GetGroupRecord")},
      {"parameters",
       {{"service", parameters.at("service").get<std::string>()}, {key, parameters.at(key)}}}};
  if (request != plain)
    throw std::invalid_argument("not one plain question");
  return byName ? kind + " " + parameters.at(key).get<std::string>()
                : key + " " + std::to_string(parameters.at(key).get<uint32_t>());
}

std::string message(const Json& content) {
  return content.dump() + '\0';
}

std::string error(const std::string& name) {
  return message({{"error", kInterface + name}, {"parameters", Json::object()}});
}

std::string answer(const std::string& text, Fault fault) {
  Json record = Json::parse(text);
  const char* id = record.contains("uid") ? "uid" : "gid";
  if (fault == Fault::WrongId)
    record[id] = record[id].get<uint32_t>() + 1;
  if (fault == Fault::MissingId)
    record.erase(id);
  record["service"] = "net.orvantadc.Zone";
  return message({{"parameters", {{"record", record}, {"incomplete", false}}}});
}

}  // namespace

FakeZone& FakeZone::user(const std::string& name, uint32_t uid, uint32_t gid) {
  const Json record = {{"userName", name}, {"uid", uid}, {"gid", gid}};
  return add("user " + name, "uid " + std::to_string(uid), record.dump());
}

FakeZone& FakeZone::group(const std::string& name, uint32_t gid) {
  const Json record = {{"groupName", name}, {"gid", gid}};
  return add("group " + name, "gid " + std::to_string(gid), record.dump());
}

FakeZone& FakeZone::add(const std::string& byName,
                        const std::string& byId,
                        const std::string& record) {
  const std::lock_guard guard(mutex);
  records[byName] = record;
  records.try_emplace(byId, record);
  return *this;
}

FakeZone& FakeZone::alias(const std::string& other, const std::string& name) {
  const std::lock_guard guard(mutex);
  for (const std::string kind : {"user ", "group "}) {
    if (records.contains(kind + name))
      records[kind + other] = records[kind + name];
  }
  return *this;
}

FakeZone& FakeZone::misbehave(Fault fault, const std::string& question) {
  const std::lock_guard guard(mutex);
  faults[question] = fault;
  return *this;
}

std::vector<std::string> FakeZone::requests() const {
  const std::lock_guard guard(mutex);
  return asked;
}

void FakeZone::startRefusing() {
  const sockaddr_un address = {AF_UNIX, "/var/orvantadc/daemon"};
  static_cast<void>(unlink(paths::kAgentSocket));
  listener.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  orDie(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            chmod(paths::kAgentSocket, 0666) == 0,
        "fake zone: bind");
}

void FakeZone::start(uint32_t listenUid) {
  startRefusing();
  // Clients see the effective uid of the thread that called listen(). The raw system call changes
  // the uid of this thread only.
  orDie(syscall(SYS_setresuid, -1, listenUid, -1) == 0 && listen(listener.get(), 16) == 0 &&
            syscall(SYS_setresuid, -1, 0, -1) == 0,
        "fake zone: listen");
  thread = std::thread([this] { serve(); });
  // A test may fork next. If the thread were still starting, it could hold the allocator's lock,
  // and the child would wait for that lock for ever.
  settled.acquire();
}

void FakeZone::stop() {
  if (thread.joinable()) {
    shutdown(listener.get(), SHUT_RDWR);
    thread.join();
  }
  if (listener)
    static_cast<void>(unlink(paths::kAgentSocket));
  listener.reset();
}

// Serves until the listener is shut down. Members own all memory that lives while the thread waits:
// memory that only this thread's stack points to would look leaked in a forked child, which lacks
// the thread.
void FakeZone::serve() {
  settled.release();
  for (;;) {
    peer.reset(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!peer)
      return;
    ++connectionCount;
    input.clear();
    while (isPeerReadable() && answerPeer()) {
    }
    peer.reset();
  }
}

// False when the connection is to be closed: a newer client has connected, or a fault says so.
bool FakeZone::isPeerReadable() const {
  pollfd entries[] = {{listener.get(), POLLIN, 0}, {peer.get(), POLLIN, 0}};
  poll(entries, std::size(entries), -1);
  const std::lock_guard guard(mutex);
  return entries[1].revents != 0 && faultFor("") != Fault::CloseUnread;
}

// False when the connection is over.
bool FakeZone::answerPeer() {
  char chunk[4096];
  const ssize_t got = recv(peer.get(), chunk, sizeof chunk, 0);
  input.append(chunk, got > 0 ? static_cast<size_t>(got) : 0);
  bool goesOn = got > 0;
  for (size_t end = 0; goesOn && (end = input.find('\0')) != std::string::npos;) {
    goesOn = answerOne(input.substr(0, end));
    input.erase(0, end + 1);
  }
  return goesOn;
}

Fault FakeZone::faultFor(const std::string& question) const {
  const auto found = faults.find(faults.contains(question) ? question : "");
  return found == faults.end() ? Fault::None : found->second;
}

// False when the connection is over.
bool FakeZone::answerOne(const std::string& request) {
  const std::lock_guard guard(mutex);
  try {
    asked.push_back(readQuestion(request));
  } catch (const std::exception&) {
    return false;
  }
  const Fault fault = faultFor(asked.back());
  const auto found = records.find(asked.back());
  const std::string reply =
      found == records.end() ? error("NoRecordFound") : answer(found->second, fault);
  const std::map<Fault, std::string> faulty = {
      {Fault::CloseBeforeAnswer, ""},
      {Fault::CloseInsideAnswer, reply.substr(0, reply.size() / 2)},
      {Fault::Garbage, std::string("{\"parameters\":}") + '\0'},
      {Fault::Oversized, std::string(2u << 20, ' ') + '\0'},
      {Fault::Hang, ""},
      {Fault::ExtraAnswer, reply + reply},
      {Fault::ServiceNotAvailable, error("ServiceNotAvailable")}};
  const std::string& bytes = faulty.contains(fault) ? faulty.at(fault) : reply;
  const size_t piece = fault == Fault::Slow ? 1 : bytes.size();
  for (size_t at = 0; at < bytes.size(); at += piece) {
    send(peer.get(), bytes.data() + at, piece, MSG_NOSIGNAL);
    usleep(fault == Fault::Slow ? 500 : 0);
  }
  return fault != Fault::CloseBeforeAnswer && fault != Fault::CloseInsideAnswer &&
         fault != Fault::CloseAfterReply;
}
