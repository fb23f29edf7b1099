// The ids inside extended attributes, from the bytes as the kernel hands them out. Pure.
//
// Nothing in the bytes is trusted: what is no list of the one version that there is has no ids, and
// is not converted. Ids are unsigned 32-bit. Bytes, and not the lists of libacl, because a record
// and an undo need them as they were, and that library sorts what it writes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct AclId {
  bool isGroup = false;
  uint32_t id = 0;

  bool operator==(const AclId&) const = default;
};

// The named users and groups of a POSIX ACL (system.posix_acl_access, system.posix_acl_default);
// none for bytes that are no such list.
std::vector<AclId> idsOfAcl(std::string_view bytes);

using IdTable = std::map<uint32_t, uint32_t>;  // old id -> new id

enum class AclVerdict : uint8_t {
  Unconcerned,  // it names nobody whose id changes
  Converted,
  Colliding,  // two of its entries would be one user's or one group's
  Malformed,
};

struct ConvertedAcl {
  AclVerdict verdict = AclVerdict::Unconcerned;
  std::string bytes;  // when Converted: entry for entry what was given, not sorted again
};

// Gives each named user and group its new id, once.
ConvertedAcl convertAcl(std::string_view bytes, const IdTable& users, const IdTable& groups);

// The same list with named users, and named groups, in the order of their ids, as the kernel is to
// be given it.
std::string sortedAcl(std::string_view bytes);

// What changed from one list to another one of the same entries: for undo and report.
struct AclChanges {
  IdTable users;
  IdTable groups;
};
AclChanges changesOfAcl(std::string_view former, std::string_view converted);

// The uid that is root to a file capability (security.capability) of version 3.
std::optional<uint32_t> rootOfCapability(std::string_view bytes);
