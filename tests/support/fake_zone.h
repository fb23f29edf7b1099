// An agent for tests: a zone in memory that answers on the agent's socket, and misbehaves on
// demand.
//
//   FakeZone zone;
//   zone.user("ayla", 70001, 70000).group("staff_z", 70000);
//   zone.misbehave(Fault::WrongId, "uid 70001").start();
//
// A thread of the test process serves the newest connection, whether its client is this process, a
// child or a program. Accounts and faults may be changed while the thread runs. Questions are
// written "user NAME", "uid N", "group NAME", "gid N"; a request that is no such question closes
// the connection. The codec here is not the product's: with one codec at both ends a mistake in it
// would go unnoticed. Failures to set up the socket abort.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "services/paths.h"
#include "services/unique_fd.h"

enum class Fault {
  None,
  CloseBeforeAnswer,  // after the request was read
  CloseInsideAnswer,
  Garbage,
  Oversized,
  Slow,  // sends one byte at a time, within the client's deadline
  Hang,  // never answers
  ExtraAnswer,
  WrongId,
  MissingId,  // the record has no id at all
  ServiceNotAvailable,
  CloseAfterReply,  // as an agent closes idle connections
  CloseUnread,      // closes each connection without reading; for all questions only
};

class FakeZone {
 public:
  FakeZone() = default;
  ~FakeZone() { stop(); }
  FakeZone(const FakeZone&) = delete;
  FakeZone& operator=(const FakeZone&) = delete;

  // Of several accounts with one id, the first is found by id.
  FakeZone& user(const std::string& name, uint32_t uid, uint32_t gid);
  FakeZone& group(const std::string& name, uint32_t gid);
  // Makes the account `name` answer to the name `other` as well. REQUIRES: the zone has `name`.
  FakeZone& alias(const std::string& other, const std::string& name);
  // Applies the fault to one question, or to all if `question` is empty.
  FakeZone& misbehave(Fault fault, const std::string& question = "");

  // Binds, listens and serves. Clients see `listenUid` as the uid of the agent.
  void start(uint32_t listenUid = 0);
  // Makes a socket on which nobody listens.
  void startRefusing();
  // Closes everything and removes the socket.
  void stop();

  // The questions so far, in order, and the number of connections so far.
  std::vector<std::string> requests() const;
  int connections() const { return connectionCount; }

 private:
  void serve();
  bool isPeerReadable() const;
  bool answerPeer();
  bool answerOne(const std::string& request);
  FakeZone& add(const std::string& byName, const std::string& byId, const std::string& record);
  Fault faultFor(const std::string& question) const;

  mutable std::mutex mutex;                    // guards records, faults and asked
  std::map<std::string, std::string> records;  // by question
  std::map<std::string, Fault> faults;         // by question
  std::vector<std::string> asked;

  std::atomic<int> connectionCount = 0;
  std::thread thread;
  UniqueFd listener, peer;
  std::string input;                 // bytes that the peer has sent
  std::binary_semaphore settled{0};  // released once the thread runs
};
