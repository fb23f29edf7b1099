// One connection to the directory agent: four lookups, one request and one answer at a time.
//
// Trusts only an agent that runs as root or as the caller. Every request has a deadline of 10 s. A
// miss is NotFoundException, an agent that cannot be reached or cannot say is IOException, a
// connection lost or an answer that makes no sense is ConnectionBrokenException.
//
// Test double: the fake zone of tests/support, a real socket that can misbehave.
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

  // By name the agent may answer for an account with another Unix name; the caller compares. By id
  // the answer bears that id.
  boost::shared_ptr<ZoneUser> getUser(const std::string& name, int flags);
  boost::shared_ptr<ZoneUser> getUser(uint32_t uid, int flags);
  boost::shared_ptr<ZoneGroup> getGroup(const std::string& name, int flags);
  boost::shared_ptr<ZoneGroup> getGroup(uint32_t gid, int flags);

 private:
  class Connection;
  std::unique_ptr<Connection> connection;
};

}  // namespace orvs
