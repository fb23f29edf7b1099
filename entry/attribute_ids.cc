#include "entry/attribute_ids.h"

#include <endian.h>
#include <linux/capability.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

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

constexpr size_t kHeader = sizeof(posix_acl_xattr_header);
constexpr size_t kEntry = sizeof(posix_acl_xattr_entry);
constexpr size_t kIdInEntry = offsetof(posix_acl_xattr_entry, e_id);

bool isAcl(std::string_view bytes) {
  return bytes.size() >= kHeader && (bytes.size() - kHeader) % kEntry == 0 &&
         wordAt(bytes, 0) == POSIX_ACL_XATTR_VERSION;
}

bool isNamed(uint32_t tag) {
  return tag == ACL_USER || tag == ACL_GROUP;
}

uint32_t idAt(std::string_view bytes, size_t entry) {
  return wordAt(bytes, entry + kIdInEntry);
}

}  // namespace

std::vector<AclId> idsOfAcl(std::string_view bytes) {
  std::vector<AclId> ids;
  if (!isAcl(bytes))
    return ids;
  for (size_t at = kHeader; at < bytes.size(); at += kEntry) {
    const uint32_t tag = tagAt(bytes, at);
    if (isNamed(tag))
      ids.push_back({tag == ACL_GROUP, idAt(bytes, at)});
  }
  return ids;
}

ConvertedAcl convertAcl(std::string_view bytes, const IdTable& users, const IdTable& groups) {
  if (!isAcl(bytes))
    return {AclVerdict::Malformed, {}};
  ConvertedAcl result;
  std::set<std::pair<uint32_t, uint32_t>> taken;  // tag and id
  bool isDoubled = false;
  for (size_t at = kHeader; at < bytes.size(); at += kEntry) {
    const uint32_t tag = tagAt(bytes, at);
    if (!isNamed(tag))
      continue;
    const IdTable& table = tag == ACL_GROUP ? groups : users;
    const auto found = table.find(idAt(bytes, at));
    const uint32_t id = found != table.end() ? found->second : idAt(bytes, at);
    isDoubled = !taken.emplace(tag, id).second || isDoubled;
    if (id == idAt(bytes, at))
      continue;
    if (result.bytes.empty())
      result.bytes = bytes;
    const uint32_t stored = htole32(id);
    memcpy(result.bytes.data() + at + kIdInEntry, &stored, sizeof stored);
    result.verdict = AclVerdict::Converted;
  }
  if (result.verdict == AclVerdict::Converted && isDoubled)
    return {AclVerdict::Colliding, {}};
  return result;
}

std::string sortedAcl(std::string_view bytes) {
  if (!isAcl(bytes))
    return std::string(bytes);
  std::vector<std::string_view> entries;
  for (size_t at = kHeader; at < bytes.size(); at += kEntry)
    entries.push_back(bytes.substr(at, kEntry));
  const auto isInFront = [](std::string_view a, std::string_view b) {
    const uint32_t tag = tagAt(a, 0);
    return tag != tagAt(b, 0) ? tag < tagAt(b, 0) : isNamed(tag) && idAt(a, 0) < idAt(b, 0);
  };
  std::stable_sort(entries.begin(), entries.end(), isInFront);
  std::string sorted(bytes.substr(0, kHeader));
  for (const std::string_view entry : entries)
    sorted += entry;
  return sorted;
}

AclChanges changesOfAcl(std::string_view former, std::string_view converted) {
  const std::vector<AclId> before = idsOfAcl(former);
  const std::vector<AclId> after = idsOfAcl(converted);
  AclChanges changes;
  for (size_t i = 0; i < std::min(before.size(), after.size()); ++i) {
    if (before[i] != after[i])
      (before[i].isGroup ? changes.groups : changes.users).emplace(before[i].id, after[i].id);
  }
  return changes;
}

std::optional<uint32_t> rootOfCapability(std::string_view bytes) {
  const bool isThird = bytes.size() == sizeof(vfs_ns_cap_data) &&
                       (wordAt(bytes, 0) & VFS_CAP_REVISION_MASK) == VFS_CAP_REVISION_3;
  if (!isThird)
    return std::nullopt;
  return wordAt(bytes, offsetof(vfs_ns_cap_data, rootid));
}
