#include "services/agent/local_rpc_session.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include <boost/make_shared.hpp>

#include "services/agent/rpc_deadline.h"
#include "services/agent/zone_wire.h"
#include "services/exceptions.h"
#include "services/interrupt.h"
#include "services/logger.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "services/unique_fd.h"

namespace orvs {

std::chrono::milliseconds internal::requestDeadline{10'000};

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kFile = "local_rpc_session";
constexpr size_t kMessageBytes = 512;  // of an exception's text, its end included

struct MessageText {
  char text[kMessageBytes] = "";
};

[[gnu::format(printf, 1, 0)]] MessageText formatMessage(const char* format, va_list arguments) {
  MessageText message;
  vsnprintf(message.text, sizeof message.text, format, arguments);
  return message;
}

// An exception for an agent that cannot be reached or cannot find out. Logs the cause here, because
// the driver's own message leaves it out.
[[gnu::format(printf, 2, 3)]] IOException unreachable(int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const MessageText message = formatMessage(format, arguments);
  va_end(arguments);
  ORVS_LOG(getLogger("cli.idshift", false), 3, kFile, "%s", message.text);
  return {kFile, line, message.text, "orvs::IOException", -1};
}

[[gnu::format(printf, 2, 3)]] ConnectionBrokenException broken(int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const MessageText message = formatMessage(format, arguments);
  va_end(arguments);
  return {kFile, line, message.text, "orvs::ConnectionBrokenException", -1};
}

NotFoundException notFound(int line, const std::string& whom) {
  MessageText message;
  snprintf(message.text, sizeof message.text, "The zone has no %s.", whom.c_str());
  return {kFile, line, message.text, "orvs::NotFoundException", -1};
}

ConnectionBrokenException interrupted(int line) {
  return broken(line, "interrupted by signal %d", interrupt::pending());
}

std::string describe(const wire::Question& question) {
  const std::string kind = question.kind == wire::Kind::User ? "user" : "group";
  return kind + " " + (question.name ? "\"" + *question.name + "\"" : std::to_string(*question.id));
}

std::string serviceName() {
  const std::string name = loadSetting(PN::AGENT_SERVICE, false, false);
  return name.empty() ? wire::kDefaultService : name;
}

std::chrono::milliseconds remaining(Clock::time_point deadline) {
  return std::max(std::chrono::milliseconds(0),
                  std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
}

// Waits until `fd` is ready; false when the deadline has passed. The wait is cut into slices of 250
// ms, because a signal that arrives just before poll() sets the flag but does not end poll().
bool waitUntilReady(int fd, short events, Clock::time_point deadline) {
  constexpr std::chrono::milliseconds kSlice{250};
  for (;;) {
    const std::chrono::milliseconds left = remaining(deadline);
    pollfd entry = {fd, events, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::min(left, kSlice).count()));
    if (ready > 0)
      return true;
    const int pollError = ready < 0 ? errno : 0;
    if (interrupt::pending() != 0)
      throw interrupted(__LINE__);
    if (pollError != 0 && pollError != EINTR)
      throw broken(__LINE__, "cannot wait for an answer: %s", strerror(pollError));
    if (left.count() == 0)
      return false;
  }
}

}  // namespace

class LocalRpcSession::Connection {
 public:
  explicit Connection(const std::string& path) : location(path), service(serviceName()) {
    open(Clock::now() + internal::requestDeadline);
  }

  // Asks for one record. A record found by id has that id. A record without an id counts as not
  // found under UNIX_ONLY and as a bad answer otherwise.
  wire::Record ask(const wire::Question& question, int flags);

 private:
  void open(Clock::time_point deadline);
  void connectTo(const sockaddr_un& address, Clock::time_point deadline);
  void checkPeer();
  std::string encodeRequest(const wire::Question& question, const std::string& whom);
  std::string exchange(const std::string& request);
  std::optional<std::string> tryExchange(const std::string& request, Clock::time_point deadline);
  bool closedWhileIdle();
  bool sendAll(const std::string& request, Clock::time_point deadline);
  std::optional<std::string> receive(Clock::time_point deadline);

  std::string location;
  std::string service;
  UniqueFd socket;
};

void LocalRpcSession::Connection::open(Clock::time_point deadline) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (location.size() >= sizeof address.sun_path)
    throw unreachable(__LINE__, "The agent's socket path is too long: %s", location.c_str());
  memcpy(address.sun_path, location.data(), location.size());

  socket.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket)
    throw unreachable(__LINE__, "Cannot create a socket: %s", strerror(errno));
  connectTo(address, deadline);
  checkPeer();
}

// The send timeout also bounds connect(), which waits while the agent's queue is full.
void LocalRpcSession::Connection::connectTo(const sockaddr_un& address,
                                            Clock::time_point deadline) {
  const auto tryConnect = [&] {
    const auto left = std::max(remaining(deadline), std::chrono::milliseconds(1));
    timeval timeout = {};
    timeout.tv_sec = left.count() / 1000;
    timeout.tv_usec = left.count() % 1000 * 1000;
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    return connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  };
  bool connected = tryConnect();
  while (!connected && errno == EINTR) {
    if (interrupt::pending() != 0)
      throw interrupted(__LINE__);
    connected = tryConnect();
  }
  if (connected)
    return;
  switch (errno) {
    case ENOENT:
      throw unreachable(__LINE__, "There is no agent socket at %s.", location.c_str());
    case ECONNREFUSED:
      throw unreachable(__LINE__, "No agent listens on %s.", location.c_str());
    case EACCES:
    case EPERM:
      throw unreachable(__LINE__, "Not permitted to connect to %s.", location.c_str());
    case EAGAIN:
      throw unreachable(__LINE__, "The agent on %s does not accept in time.", location.c_str());
    default:
      throw unreachable(__LINE__, "Cannot connect to %s: %s", location.c_str(), strerror(errno));
  }
}

// Whoever runs the agent chooses every new owner, so it must be root or the caller.
void LocalRpcSession::Connection::checkPeer() {
  ucred peer = {};
  socklen_t length = sizeof peer;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
    throw unreachable(__LINE__, "Cannot tell who answers on %s: %s", location.c_str(),
                      strerror(errno));
  if (peer.uid != 0 && peer.uid != geteuid())
    throw unreachable(__LINE__, "The agent on %s runs as uid %u, which is not trusted.",
                      location.c_str(), peer.uid);
}

// Sends one request and waits for its answer. Agents close connections that are idle, and a client
// notices only at its next request. So a request that the agent has certainly not read is sent once
// more, over a new connection. Any other failure drops the connection: an answer that comes too
// late must not be taken for that of the next request. The deadline covers both tries.
std::string LocalRpcSession::Connection::exchange(const std::string& request) {
  const Clock::time_point deadline = Clock::now() + internal::requestDeadline;
  try {
    if (!socket)
      open(deadline);
    std::optional<std::string> reply = tryExchange(request, deadline);
    if (!reply) {
      open(deadline);
      reply = tryExchange(request, deadline);
    }
    if (!reply)
      throw broken(__LINE__, "the agent closes connections without reading from them");
    return std::move(*reply);
  } catch (...) {
    socket.reset();
    throw;
  }
}

// Nothing when the agent closed the connection before it read the request.
std::optional<std::string> LocalRpcSession::Connection::tryExchange(const std::string& request,
                                                                    Clock::time_point deadline) {
  if (closedWhileIdle() || !sendAll(request, deadline))
    return std::nullopt;
  return receive(deadline);
}

bool LocalRpcSession::Connection::closedWhileIdle() {
  char byte = 0;
  const ssize_t got = recv(socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (got > 0)
    throw broken(__LINE__, "the agent sent what nobody asked for");
  return got == 0 || errno == ECONNRESET;
}

bool LocalRpcSession::Connection::sendAll(const std::string& request, Clock::time_point deadline) {
  size_t sent = 0;
  while (sent < request.size()) {
    const ssize_t put = send(socket.get(), request.data() + sent, request.size() - sent,
                             MSG_NOSIGNAL | MSG_DONTWAIT);
    if (put >= 0) {
      sent += static_cast<size_t>(put);
    } else if (errno == EAGAIN) {
      if (!waitUntilReady(socket.get(), POLLOUT, deadline))
        throw broken(__LINE__, "the agent does not read the request in time");
    } else if (sent == 0 && (errno == EPIPE || errno == ECONNRESET)) {
      return false;
    } else if (errno != EINTR) {
      throw broken(__LINE__, "cannot send the request: %s", strerror(errno));
    }
  }
  return true;
}

std::optional<std::string> LocalRpcSession::Connection::receive(Clock::time_point deadline) {
  std::string reply;
  char chunk[16 * 1024];
  for (;;) {
    if (!waitUntilReady(socket.get(), POLLIN, deadline))
      throw broken(__LINE__, "the agent does not answer in time");
    const ssize_t got = recv(socket.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN))
      continue;
    // The kernel resets a connection that is closed with unread data: the request was never read.
    if (got < 0 && errno == ECONNRESET && reply.empty())
      return std::nullopt;
    if (got < 0)
      throw broken(__LINE__, "cannot read the answer: %s", strerror(errno));
    if (got == 0 && reply.empty())
      throw broken(__LINE__, "the agent closed the connection before it answered");
    if (got == 0)
      throw broken(__LINE__, "the agent closed the connection inside an answer");
    const size_t searchFrom = reply.size();
    reply.append(chunk, static_cast<size_t>(got));
    const size_t end = reply.find('\0', searchFrom);
    if (std::min(end, reply.size()) > wire::kMaxReplyBytes)
      throw broken(__LINE__, "the agent's answer is too long");
    if (end == std::string::npos)
      continue;
    if (end + 1 != reply.size())
      throw broken(__LINE__, "the agent sent more than one answer");
    reply.pop_back();
    return reply;
  }
}

// The request as bytes. Throws for a name or id that cannot be asked for.
std::string LocalRpcSession::Connection::encodeRequest(const wire::Question& question,
                                                       const std::string& whom) {
  const wire::NameForm form = question.name ? wire::nameForm(*question.name) : wire::NameForm::Good;
  // The zone may know this account, but a message cannot carry its name.
  if (form == wire::NameForm::NotUtf8)
    throw unreachable(__LINE__, "The name of %s is not UTF-8.", whom.c_str());
  if (form == wire::NameForm::Impossible || (question.id && *question.id > wire::kMaxId))
    throw notFound(__LINE__, whom);
  std::string request = encodeQuestion(question, service);
  if (request.size() > wire::kMaxRequestBytes)
    throw notFound(__LINE__, whom);
  return request;
}

wire::Record LocalRpcSession::Connection::ask(const wire::Question& question, int flags) {
  const std::string whom = describe(question);
  const std::string request = encodeRequest(question, whom);
  const wire::Reply reply = parseReply(exchange(request), question.kind);
  switch (reply.outcome) {
    case wire::Reply::Outcome::Malformed:
      socket.reset();
      throw broken(__LINE__, "the answer about %s makes no sense: %s", whom.c_str(),
                   reply.detail.c_str());
    case wire::Reply::Outcome::Error:
      if (reply.detail == wire::kNoRecordFound)
        throw notFound(__LINE__, whom);
      throw unreachable(__LINE__, "The agent cannot tell about %s: %s", whom.c_str(),
                        reply.detail.c_str());
    case wire::Reply::Outcome::Found:
      break;
  }
  if (question.id && reply.record.id != question.id) {
    socket.reset();
    throw broken(__LINE__, "the answer about %s is about another id", whom.c_str());
  }
  if (!reply.record.id && (flags & UNIX_ONLY) != 0)
    throw notFound(__LINE__, whom);
  if (!reply.record.id)
    throw broken(__LINE__, "the answer about %s has no id", whom.c_str());
  return reply.record;
}

LocalRpcSession::LocalRpcSession(const std::string& location,
                                 bool /*reserved0*/,
                                 bool /*reserved1*/)
    : connection(std::make_unique<Connection>(location)) {}

LocalRpcSession::~LocalRpcSession() = default;

namespace {

boost::shared_ptr<ZoneUser> toUser(const wire::Record& record) {
  auto user = boost::make_shared<ZoneUser>();
  user->uid = record.id.value();
  user->unixName = record.name;
  user->gid = record.gid;
  return user;
}

boost::shared_ptr<ZoneGroup> toGroup(const wire::Record& record) {
  auto group = boost::make_shared<ZoneGroup>();
  group->gid = record.id.value();
  group->name = record.name;
  return group;
}

}  // namespace

boost::shared_ptr<ZoneUser> LocalRpcSession::getUser(const std::string& name, int flags) {
  return toUser(connection->ask({wire::Kind::User, name, std::nullopt}, flags));
}

boost::shared_ptr<ZoneUser> LocalRpcSession::getUser(uint32_t uid, int flags) {
  return toUser(connection->ask({wire::Kind::User, std::nullopt, uid}, flags));
}

boost::shared_ptr<ZoneGroup> LocalRpcSession::getGroup(const std::string& name, int flags) {
  return toGroup(connection->ask({wire::Kind::Group, name, std::nullopt}, flags));
}

boost::shared_ptr<ZoneGroup> LocalRpcSession::getGroup(uint32_t gid, int flags) {
  return toGroup(connection->ask({wire::Kind::Group, std::nullopt, gid}, flags));
}

}  // namespace orvs
