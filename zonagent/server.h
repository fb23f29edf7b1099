// The agent's loop: accepts clients, splits what they send into messages, asks the backend and
// sends the replies. Each client has one request in work at a time; its next one waits.
//
// SIGTERM and SIGINT end the loop, SIGHUP makes the source reload. All three must be blocked in the
// whole process. A LookupPool asks a backend that may block: when a module hangs, the client that
// asked gets "not available" after the lookup deadline, and the other clients are served. Each
// answer "not available" is logged with its reason, the same reason at most once a second. Socket,
// source and server live in one thread. The constructor throws AgentError.
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

inline constexpr const char* kNotInTime = "the lookup took too long";

class Server {
 public:
  Server(const ListenSocket& listenSocket,
         ZoneSource& zoneSource,
         const ServerLimits& serverLimits = {});

  // Returns after SIGTERM or SIGINT.
  void run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Lookup {
    uint64_t ticket = 0;
    orvs::wire::Request request;
  };

  // One client. It is in one of three states: waiting for a lookup (`lookup` is set), being sent a
  // reply (`output` is not empty), or being read from.
  struct Peer {
    UniqueFd fd;  // once closed, the loop removes the peer at the end of its turn
    uid_t uid = 0;
    std::string input;
    std::string output;
    std::optional<Lookup> lookup;
    Clock::time_point deadline;  // for the present state to end
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
