// Asks the agent for the zone's accounts. An account that the zone does not have is null.
//
// One connection to the agent for as long as the object lives. Throws what orvs::LocalRpcSession
// throws, but for a miss.
#pragma once

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "services/agent/local_rpc_session.h"

class ZoneLookup {
 public:
  ZoneLookup();

  boost::shared_ptr<orvs::ZoneUser> user(const std::string& name);
  boost::shared_ptr<orvs::ZoneUser> user(uint32_t uid);
  boost::shared_ptr<orvs::ZoneGroup> group(const std::string& name);
  boost::shared_ptr<orvs::ZoneGroup> group(uint32_t gid);

 private:
  orvs::LocalRpcSession session;
};
