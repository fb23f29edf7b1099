// A zone in memory, answering on the agent's socket as the agent does, and misbehaving on demand.
//
//   FakeZone zone;
//   zone.user("ayla", 70001, 70000).group("staff_z", 70000);
//   zone.misbehave(Fault::WrongId, "uid 70001").start();
//
// It serves from a thread of the test process, so it works for the tool in this process, in a child
// and as a program of its own; one connection at a time, the newest. Everything may be changed
// while it runs. Questions are written "user NAME", "uid N", "group NAME", "gid N"; a strict agent
// hangs up on anything else, and so does this. The codec is not the product's, so that a mistake
// there does not cancel itself out.
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
  // For one question, or for all.
  CloseBeforeAnswer,  // after the request was read
  CloseInsideAnswer,
  Garbage,
  Oversized,
  Slow,  // one byte at a time, in time
  Hang,  // never
  ExtraAnswer,
  WrongId,
  MissingId,  // the record has no id at all
  ServiceNotAvailable,
  CloseAfterReply,  // as an agent does with idle connections
  CloseUnread,      // closes each connection without reading; only without a question
};

class FakeZone {
 public:
  FakeZone() = default;
  ~FakeZone() { stop(); }
  FakeZone(const FakeZone&) = delete;
  FakeZone& operator=(const FakeZone&) = delete;

  // By id, the account added first answers.
  FakeZone& user(const std::string& name, uint32_t uid, uint32_t gid);
  FakeZone& group(const std::string& name, uint32_t gid);
  // Asked for `other`, the zone answers with the account `name`, which it has already.
  FakeZone& alias(const std::string& other, const std::string& name);
  // An empty question means all of them.
  FakeZone& misbehave(Fault fault, const std::string& question = "");

  // Binds, listens and serves. Started as `listenUid` the agent bears that uid for its peers.
  void start(uint32_t listenUid = 0);
  // A socket on which nobody listens.
  void startRefusing();
  // Closes everything and removes the socket.
  void stop();

  // What was asked so far, in order, and how often somebody connected.
  std::vector<std::string> requests() const;
  int connections() const { return connectionCount; }

 private:
  void serve();
  bool isPeerReadable() const;
  bool answerPeer();
  bool answerOne(const std::string& request);
  FakeZone& add(const std::string& byName, const std::string& byId, const std::string& record);
  Fault faultFor(const std::string& question) const;

  mutable std::mutex mutex;                    // guards the three that follow
  std::map<std::string, std::string> records;  // by question
  std::map<std::string, Fault> faults;         // by question
  std::vector<std::string> asked;

  std::atomic<int> connectionCount = 0;
  std::thread thread;
  UniqueFd listener, peer;
  std::string input;                 // of the peer
  std::binary_semaphore settled{0};  // the thread runs
};
