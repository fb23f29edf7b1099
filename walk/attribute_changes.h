// ACLs that are converted and capabilities that are kept, in one walk.
//
// An ACL is found by name and read once more, recorded and changed through the pin. Nothing here
// ends the walk: what cannot be converted or kept is reported, counted and left as it is. With both
// settings off no call is made.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "entry/attribute_access.h"
#include "services/logger.h"

struct FoundEntry;
struct OwnerIds;

// How many ACLs and capabilities this run has left as they were, or lost.
extern uint64_t attributesLeft;

class AttributeChanges {
 public:
  AttributeChanges(bool convertsAcls, bool keepsCapabilities);

  // What an entry may have, once it was looked at.
  using Found = std::optional<AttributeSet>;

  // The access ACL of an entry, and the default ACL of a directory.
  void convertAcls(const FoundEntry& entry, bool followed, Found& found) {
    if (convertsAcls)
      convertBoth(entry, followed, found);
  }

  // Before the owner of an entry changes to `newIds`. Whether there is a capability to put back
  // behind that, through the pin, which holds the entry then. Looked for by name: who exchanges the
  // entry meanwhile loses it a capability, and gains none.
  bool holdCapability(const FoundEntry& entry,
                      bool followed,
                      const OwnerIds& newIds,
                      Found& found) {
    return keepsCapabilities && hold(entry, followed, newIds, found);
  }
  // Behind that change, which was made or not.
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
  std::map<uint64_t, bool> aclsByDevice;  // whether it has any; asked once
  std::string heldCapability;
};

// The entry is pinned, or becomes so. False with errno.
bool pinFound(const FoundEntry& entry, bool followed);

// On an overlay the first change copies the entry to the upper layer, and a name of several of one
// inode gets an inode of its own then. So the access time is set to what it is, and what a record
// names is what stands there afterwards. False with errno.
bool copyUpFound(const FoundEntry& entry, bool followed);
