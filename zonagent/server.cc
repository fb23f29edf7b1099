#include "zonagent/server.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "zonagent/admission.h"
#include "zonagent/agent_signals.h"

namespace zonagent {
namespace {

constexpr int kAcceptsPerTurn = 16;
constexpr std::chrono::seconds kAcceptPause{1};

}  // namespace

Server::Server(const ListenSocket& listenSocket,
               ZoneSource& zoneSource,
               const ServerLimits& serverLimits)
    : listener(listenSocket), source(zoneSource), limits(serverLimits), signals(openSignals()) {
  takeBackend();
}

// Uses the source's present backend. Repeats lookups that still wait for the former one.
void Server::takeBackend() {
  if (backend == source.backend())
    return;
  std::unique_ptr<LookupPool> workers;
  if (source.backend()->mayBlock())
    workers = std::make_unique<LookupPool>(limits.workers);
  pool = std::move(workers);
  backend = source.backend();
  for (Peer& peer : peers) {
    if (!peer.lookup)
      continue;
    orvs::wire::Request request = std::move(peer.lookup->request);
    peer.lookup.reset();
    ask(peer, std::move(request));
    advance(peer);
  }
}

// One turn of the loop. A client is polled for the one event that its state waits for: bytes to
// read, room to write, or, while a lookup is under way, nothing but a hang-up, which poll() always
// reports. Signals come first, so that a reload is complete before any later request is read
// (reload_request.h relies on this). Clients come before finished lookups, and both before
// deadlines, so that an answer that has arrived is not given up. New clients are accepted last:
// `entries` and `peers` then still match while the events are handed out. A client that was closed
// keeps its place in `peers` until all have been served.
void Server::run() {
  for (;;) {
    const bool accepting = Clock::now() >= acceptAgain;
    std::vector<pollfd> entries = {{signals.get(), POLLIN, 0},
                                   {accepting ? listener.get() : -1, POLLIN, 0},
                                   {pool ? pool->readyFd() : -1, POLLIN, 0}};
    for (const Peer& peer : peers) {
      const int events = peer.lookup ? 0 : peer.output.empty() ? POLLIN : POLLOUT;
      entries.push_back({peer.fd.get(), static_cast<short>(events), 0});
    }
    const size_t fixed = entries.size() - peers.size();
    if (poll(entries.data(), entries.size(), pollTimeout()) < 0)
      continue;
    if (entries[0].revents != 0 && takeSignals())
      return;
    for (size_t i = fixed; i < entries.size(); ++i)
      serve(peers[i - fixed], entries[i].revents);
    if (pool && entries[2].revents != 0)
      collectLookups();
    for (Peer& peer : peers)
      expire(peer);
    std::erase_if(peers, [](const Peer& peer) { return !peer.fd; });
    if (entries[1].revents != 0)
      acceptPeers();
  }
}

// Milliseconds until the nearest deadline; -1 when there is none.
int Server::pollTimeout() const {
  const Clock::time_point now = Clock::now();
  Clock::time_point nearest = Clock::time_point::max();
  for (const Peer& peer : peers)
    nearest = std::min(nearest, peer.deadline);
  if (acceptAgain > now)
    nearest = std::min(nearest, acceptAgain);
  if (nearest == Clock::time_point::max())
    return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(nearest - now);
  return static_cast<int>(std::max<int64_t>(0, left.count()));
}

// Handles all signals that have come. True when one of them ends the agent.
bool Server::takeSignals() {
  signalfd_siginfo info = {};
  while (read(signals.get(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo != SIGHUP)
      return true;
    reload();
  }
  return false;
}

void Server::reload() {
  source.reload();
  try {
    takeBackend();
  } catch (const std::exception& error) {
    AGENT_SAY("server", "zonagent: the former backend stays in force: %s", error.what());
  }
}

void Server::collectLookups() {
  for (auto& [ticket, action] : pool->collect()) {
    const auto peer = std::find_if(peers.begin(), peers.end(), [number = ticket](const Peer& p) {
      return p.lookup && p.lookup->ticket == number;
    });
    if (peer == peers.end())
      continue;  // the client has hung up, or its lookup was given up
    const Lookup lookup = std::move(*peer->lookup);
    peer->lookup.reset();
    perform(*peer, lookup.request, action);
    advance(*peer);
  }
}

void Server::acceptPeers() {
  for (int i = 0; i < kAcceptsPerTurn; ++i) {
    UniqueFd fd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd && (errno == EINTR || errno == ECONNABORTED))
      continue;
    if (!fd) {
      if (errno != EAGAIN)
        acceptAgain = Clock::now() + kAcceptPause;
      return;
    }
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        !makeRoomFor(credentials.uid))
      continue;
    Peer peer;
    peer.fd = std::move(fd);
    peer.uid = credentials.uid;
    peer.deadline = Clock::now() + limits.idle;
    peers.push_back(std::move(peer));
  }
}

// Closes an idle connection if a new one of `uid` needs its place. False when the new one must be
// turned away.
bool Server::makeRoomFor(uid_t uid) {
  std::vector<Seat> seats;
  seats.reserve(peers.size());
  for (const Peer& peer : peers)
    seats.push_back({peer.uid, isIdle(peer), peer.deadline});
  const Admission admission = admit(uid, seats);
  if (admission.givesWay)
    peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(*admission.givesWay));
  return admission.welcome;
}

// A peer whose request has arrived but was not read yet is not idle.
bool Server::isIdle(const Peer& peer) const {
  char byte = 0;
  return !peer.lookup && peer.output.empty() &&
         recv(peer.fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0;
}

void Server::serve(Peer& peer, short events) {
  if (events == 0)
    return;
  if (peer.lookup)
    close(peer);  // poll() was asked for no event, so the client has hung up
  else if (peer.output.empty())
    receive(peer);
  advance(peer);
}

void Server::receive(Peer& peer) {
  char chunk[16 * 1024];
  const ssize_t got = recv(peer.fd.get(), chunk, sizeof chunk, 0);
  if (got > 0)
    peer.input.append(chunk, static_cast<size_t>(got));
  else if (got == 0 || (errno != EAGAIN && errno != EINTR))
    close(peer);
}

// Sends and answers as much as is possible without waiting.
void Server::advance(Peer& peer) {
  while (peer.fd && !peer.lookup) {
    if (!peer.output.empty() ? !flush(peer) : !takeMessage(peer))
      return;
  }
}

// False when no whole message has arrived yet.
bool Server::takeMessage(Peer& peer) {
  const size_t end = peer.input.find('\0');
  if (std::min(end, peer.input.size()) > orvs::wire::kMaxRequestBytes) {
    close(peer);
    return false;
  }
  if (end == std::string::npos)
    return false;
  const std::string message = peer.input.substr(0, end);
  peer.input.erase(0, end + 1);
  ask(peer, orvs::wire::parseRequest(message));
  return true;
}

void Server::ask(Peer& peer, orvs::wire::Request request) {
  if (!pool || !takesLookup(request)) {
    perform(peer, request, decide(request, source.service(), *backend));
    return;
  }
  peer.lookup = {++lastTicket, std::move(request)};
  peer.deadline = Clock::now() + limits.lookup;
  pool->submit(lastTicket, [asked = peer.lookup->request, name = source.service(), asks = backend] {
    return decide(asked, name, *asks);
  });
}

void Server::perform(Peer& peer, const orvs::wire::Request& request, const Action& action) {
  if (!action.why.empty() && reasons.passes(action.why, Clock::now()))
    AGENT_SAY("server", "zonagent: %s: not available: %s", describe(request.question).c_str(),
              action.why.c_str());
  switch (action.what) {
    case Action::What::Send:
      peer.output = action.bytes;
      peer.deadline = Clock::now() + limits.send;
      break;
    case Action::What::StaySilent:
      peer.deadline = Clock::now() + limits.idle;
      break;
    case Action::What::HangUp:
      close(peer);
      break;
  }
}

// False when some of the output could not be sent yet.
bool Server::flush(Peer& peer) {
  const ssize_t put =
      send(peer.fd.get(), peer.output.data(), peer.output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (put < 0) {
    if (errno != EAGAIN && errno != EINTR)
      close(peer);
    return false;
  }
  peer.output.erase(0, static_cast<size_t>(put));
  if (peer.output.empty())
    peer.deadline = Clock::now() + limits.idle;
  return peer.output.empty();
}

void Server::expire(Peer& peer) {
  if (!peer.fd || Clock::now() < peer.deadline)
    return;
  if (!peer.lookup) {
    close(peer);
    return;
  }
  const Lookup lookup = std::move(*peer.lookup);
  pool->cancel(lookup.ticket);
  peer.lookup.reset();
  perform(peer, lookup.request, unavailable(kNotInTime));
  advance(peer);
}

void Server::close(Peer& peer) {
  if (peer.lookup)
    pool->cancel(peer.lookup->ticket);
  peer.lookup.reset();
  peer.fd.reset();
}

}  // namespace zonagent
