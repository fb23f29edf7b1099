// Converts ACLs and keeps capabilities during one walk.
//
// An ACL is looked for by name. One that is found is read again through the pin, recorded, and
// changed through the pin. Nothing here ends the walk: an ACL that cannot be converted and a
// capability that cannot be kept are reported and counted. With both settings off no system call is
// made.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "entry/attribute_access.h"
#include "services/logger.h"

struct FoundEntry;
struct OwnerIds;

// How many ACLs and capabilities this run could not convert or keep.
extern uint64_t attributesLeft;

class AttributeChanges {
 public:
  AttributeChanges(bool convertsAcls, bool keepsCapabilities);

  // The attributes that an entry may have; nothing before the first look.
  using Found = std::optional<AttributeSet>;

  // Converts the access ACL of an entry, and the default ACL of a directory.
  void convertAcls(const FoundEntry& entry, bool followed, Found& found) {
    if (convertsAcls)
      convertBoth(entry, followed, found);
  }

  // Call before the owner of an entry changes to `newIds`. True when the entry has a capability to
  // put back after the change; the entry is pinned then. The capability is looked for by name:
  // somebody who exchanges the entry meanwhile can only make it lose a capability, not gain one.
  bool holdCapability(const FoundEntry& entry,
                      bool followed,
                      const OwnerIds& newIds,
                      Found& found) {
    return keepsCapabilities && hold(entry, followed, newIds, found);
  }
  // Call after the change of owner; `isChanged` tells whether it was made.
  void endCapability(const FoundEntry& entry, bool isChanged);

 private:
  bool hasAcls(const FoundEntry& entry, bool followed);
  static bool look(const FoundEntry& entry, bool followed, Found& found);
  void convertBoth(const FoundEntry& entry, bool followed, Found& found);
  void convertOne(const FoundEntry& entry, bool followed, AttributeKind kind);
  void change(const FoundEntry& entry,
              bool followed,
              AttributeKind kind,
              const std::string& former);
  bool hold(const FoundEntry& entry, bool followed, const OwnerIds& newIds, Found& found);
  void leaveAcl(const FoundEntry& entry, const char* reason) const;
  void loseCapability(const FoundEntry& entry, const char* reason) const;

  bool convertsAcls;
  bool keepsCapabilities;
  orvs::LoggerPtr logger;
  std::map<uint64_t, bool> aclsByDevice;  // whether the device supports ACLs
  std::string heldCapability;
};

// Pins the entry unless it is pinned already. False with errno.
bool pinFound(const FoundEntry& entry, bool followed);

// On an overlay the first change copies the entry to the upper layer, and one of several hard links
// gets a new inode by that. A record written before would name an inode that the change does not
// touch. So this makes the copy first, by setting the access time to its present value, and then
// reads the status again. False with errno.
bool copyUpFound(const FoundEntry& entry, bool followed);
