// One connection to the directory agent: four lookups, one request and one answer at a time.
//
// The agent must run as root or as the caller. Every request has a deadline of 10 s.
//
// NotFoundException: the zone has no such account. IOException: the agent cannot be reached, or
// cannot find out. ConnectionBrokenException: the connection was lost, no answer came in time, the
// answer makes no sense, or a signal ended the wait.
//
// Tests use the fake zone of tests/support, which serves a real socket and misbehaves on request.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <boost/shared_ptr.hpp>

#include "services/agent/zone_records.h"

namespace orvs {

class LocalRpcSession {
 public:
  // Connects to the socket at `location`. The flags are reserved and always false.
  LocalRpcSession(const std::string& location, bool reserved0, bool reserved1);
  ~LocalRpcSession();
  LocalRpcSession(const LocalRpcSession&) = delete;
  LocalRpcSession& operator=(const LocalRpcSession&) = delete;

  // A lookup by name may return an account with another Unix name, so the caller compares names. A
  // lookup by id returns an account with that id.
  boost::shared_ptr<ZoneUser> getUser(const std::string& name, int flags);
  boost::shared_ptr<ZoneUser> getUser(uint32_t uid, int flags);
  boost::shared_ptr<ZoneGroup> getGroup(const std::string& name, int flags);
  boost::shared_ptr<ZoneGroup> getGroup(uint32_t gid, int flags);

 private:
  class Connection;
  std::unique_ptr<Connection> connection;
};

}  // namespace orvs
