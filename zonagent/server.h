// The poll loop: accepts clients, cuts what they send into messages, has each answered and sends
// the replies, one request of a client at a time.
//
// SIGTERM and SIGINT end it, SIGHUP makes the source reload; the three must be blocked in the whole
// process. A backend that may block is asked by a LookupPool, so that one that hangs costs its
// clients a "not available" after the lookup deadline and nobody else anything. Each answer "not
// available" is logged with its reason, the same reason once a second.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "services/unique_fd.h"
#include "zonagent/agent_log.h"
#include "zonagent/listen_socket.h"
#include "zonagent/lookup_pool.h"
#include "zonagent/zone_source.h"

namespace zonagent {

struct ServerLimits {
  std::chrono::milliseconds idle{15'000};   // for a whole request to arrive
  std::chrono::milliseconds send{15'000};   // for a whole reply to be taken
  std::chrono::milliseconds lookup{5'000};  // for a blocking backend to answer
  int workers = 8;
};

inline constexpr const char* kNotInTime = "not in time";

class Server {
 public:
  Server(const ListenSocket& listenSocket,
         ZoneSource& zoneSource,
         const ServerLimits& serverLimits = {});

  // Returns when a signal has asked for the end.
  void run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Lookup {
    uint64_t ticket = 0;
    orvs::wire::Request request;
  };

  // Its state: it waits for a lookup, or has output, or is being read from.
  struct Peer {
    UniqueFd fd;  // closed: the peer is removed at the end of the turn
    uid_t uid = 0;
    std::string input;
    std::string output;
    std::optional<Lookup> lookup;  // that it waits for
    Clock::time_point deadline;    // of the present state
  };

  void takeBackend();
  bool takeSignals();
  void reload();
  void collectLookups();
  void acceptPeers();
  bool makeRoomFor(uid_t uid);
  bool isIdle(const Peer& peer) const;
  void serve(Peer& peer, short events);
  void receive(Peer& peer);
  void advance(Peer& peer);
  bool takeMessage(Peer& peer);
  void ask(Peer& peer, orvs::wire::Request request);
  void perform(Peer& peer, const orvs::wire::Request& request, const Action& action);
  bool flush(Peer& peer);
  void expire(Peer& peer);
  void close(Peer& peer);
  int pollTimeout() const;

  const ListenSocket& listener;
  ZoneSource& source;
  std::shared_ptr<ZoneBackend> backend;
  ServerLimits limits;
  UniqueFd signals;
  std::unique_ptr<LookupPool> pool;  // null when the backend answers at once
  OncePerSecond reasons;
  uint64_t lastTicket = 0;
  Clock::time_point acceptAgain;  // after a shortage of descriptors or memory
  std::vector<Peer> peers;
};

}  // namespace zonagent
