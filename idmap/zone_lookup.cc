#include "idmap/zone_lookup.h"

#include "services/exceptions.h"
#include "services/paths.h"

namespace {

constexpr int kUserFlags = orvs::UNIX_ONLY;
constexpr int kGroupFlags = orvs::UNIX_ONLY | orvs::GROUP_MEMBERSHIP;

// The result of `ask`; null when the zone has no such account.
template <class Ask>
auto orNull(const Ask& ask) -> decltype(ask()) {
  try {
    return ask();
  } catch (const orvs::NotFoundException&) {
    return nullptr;
  }
}

}  // namespace

ZoneLookup::ZoneLookup() : session(paths::kAgentSocket, false, false) {}

boost::shared_ptr<orvs::ZoneUser> ZoneLookup::user(const std::string& name) {
  return orNull([&] { return session.getUser(name, kUserFlags); });
}

boost::shared_ptr<orvs::ZoneUser> ZoneLookup::user(uint32_t uid) {
  return orNull([&] { return session.getUser(uid, kUserFlags); });
}

boost::shared_ptr<orvs::ZoneGroup> ZoneLookup::group(const std::string& name) {
  return orNull([&] { return session.getGroup(name, kGroupFlags); });
}

boost::shared_ptr<orvs::ZoneGroup> ZoneLookup::group(uint32_t gid) {
  return orNull([&] { return session.getGroup(gid, kGroupFlags); });
}
