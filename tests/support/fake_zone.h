// A zone in memory, answering on a real socket as the agent does, and misbehaving on demand.
//
//   FakeZone zone;
//   zone.user("ayla", 70001, 70000).group("staff_z", 70000);
//   zone.misbehave(Fault::WrongId, "uid 70001");
//   zone.start();
//
// It serves from a thread of the test process, so it works for the tool in this process, in a child
// and as a program of its own. Everything may be changed while it runs. Questions are written
// "user NAME", "uid N", "group NAME", "gid N"; a request that a strict agent would hang up on
// is recorded as "malformed: ..." and is hung up on. The codec is not the product's, so that a
// mistake there does not cancel itself out. By id, the account added first wins.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "services/paths.h"

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
  // For the connection as a whole; only without a question.
  CloseUnread,      // closes each connection without reading
  CloseAfterReply,  // closes each connection behind an answer, as an agent does with idle ones
};

class FakeZone {
 public:
  explicit FakeZone(std::string socketPath = paths::kAgentSocket);
  ~FakeZone();  // stops
  FakeZone(const FakeZone&) = delete;
  FakeZone& operator=(const FakeZone&) = delete;

  // An account of a name that the zone has already takes its place.
  FakeZone& user(const std::string& name, uint32_t uid, uint32_t gid);
  FakeZone& group(const std::string& name, uint32_t gid);
  // Asked for `other`, the zone answers with the account `name`. Users and groups alike.
  FakeZone& alias(const std::string& other, const std::string& name);

  // An empty question means all of them.
  FakeZone& misbehave(Fault fault, const std::string& question = "");

  // Makes the socket's directory, binds, listens and serves. Started as `listenUid` the agent
  // bears that uid for its peers.
  void start(uint32_t listenUid = 0);
  // A socket on which nobody listens.
  void startRefusing();
  // Closes everything and removes the socket.
  void stop();

  // What was asked so far, in order, and how often somebody connected.
  std::vector<std::string> requests() const;
  int connections() const;

 private:
  class Server;
  std::unique_ptr<Server> server;
};
