// The ids inside extended attributes, from the bytes as the kernel hands them out. Pure.
#pragma once

#include <cstdint>
#include <optional>
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

// The uid that is root to a file capability (security.capability) of version 3.
std::optional<uint32_t> rootOfCapability(std::string_view bytes);
