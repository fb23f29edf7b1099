#include "survey/tree/attribute_ids.h"

#include <endian.h>
#include <linux/capability.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>

#include <cstring>

namespace {

uint32_t wordAt(std::string_view bytes, size_t at) {
  uint32_t word = 0;
  memcpy(&word, bytes.data() + at, sizeof word);
  return le32toh(word);
}

uint32_t tagAt(std::string_view bytes, size_t at) {
  uint16_t tag = 0;
  memcpy(&tag, bytes.data() + at, sizeof tag);
  return le16toh(tag);
}

}  // namespace

std::vector<AclId> idsOfAcl(std::string_view bytes) {
  constexpr size_t kHeader = sizeof(posix_acl_xattr_header);
  constexpr size_t kEntry = sizeof(posix_acl_xattr_entry);
  std::vector<AclId> ids;
  if (bytes.size() < kHeader || (bytes.size() - kHeader) % kEntry != 0 ||
      wordAt(bytes, 0) != POSIX_ACL_XATTR_VERSION)
    return ids;
  for (size_t at = kHeader; at < bytes.size(); at += kEntry) {
    const uint32_t tag = tagAt(bytes, at);
    if (tag == ACL_USER || tag == ACL_GROUP)
      ids.push_back({tag == ACL_GROUP, wordAt(bytes, at + 4)});
  }
  return ids;
}

std::optional<uint32_t> rootOfCapability(std::string_view bytes) {
  const bool isThird = bytes.size() == sizeof(vfs_ns_cap_data) &&
                       (wordAt(bytes, 0) & VFS_CAP_REVISION_MASK) == VFS_CAP_REVISION_3;
  if (!isThird)
    return std::nullopt;
  return wordAt(bytes, offsetof(vfs_ns_cap_data, rootid));
}
