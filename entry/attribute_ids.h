// Reads and changes the ids inside extended attributes, in the bytes that the kernel returns. Pure.
//
// Nothing in the bytes is trusted: bytes that are no ACL of the one known version have no ids and
// are not converted. Ids are unsigned 32-bit. The bytes are handled here and not by libacl, because
// records and undo need them exactly as they were, and libacl sorts what it writes.
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
// empty for bytes that are no such ACL.
std::vector<AclId> idsOfAcl(std::string_view bytes);

using IdTable = std::map<uint32_t, uint32_t>;  // old id -> new id

enum class AclVerdict : uint8_t {
  Unconcerned,  // no id in it changes
  Converted,
  Colliding,  // two entries would name the same user or the same group
  Malformed,
};

struct ConvertedAcl {
  AclVerdict verdict = AclVerdict::Unconcerned;
  std::string bytes;  // when Converted: the entries in their given order
};

// Replaces the id of each named user and group once: a new id is never looked up again.
ConvertedAcl convertAcl(std::string_view bytes, const IdTable& users, const IdTable& groups);

// The same ACL with named users and named groups in the order of their ids, as the kernel expects
// it.
std::string sortedAcl(std::string_view bytes);

// The ids that differ between two ACLs with the same entries in the same order, for undo and
// report.
struct AclChanges {
  IdTable users;
  IdTable groups;
};
AclChanges changesOfAcl(std::string_view former, std::string_view converted);

// The uid that counts as root for a file capability (security.capability) of version 3.
std::optional<uint32_t> rootOfCapability(std::string_view bytes);
