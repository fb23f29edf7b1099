#include "entry/attribute_access.h"

#include <linux/limits.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

// The name of a pin below /proc/self/fd.
class PinName {
 public:
  explicit PinName(const PinnedEntry& entry) {
    snprintf(text.data(), text.size(), "/proc/self/fd/%d", entry.descriptor());
  }
  const char* get() const { return text.data(); }

 private:
  std::array<char, 32> text = {};
};

}  // namespace

const char* attributeName(AttributeKind kind) {
  switch (kind) {
    case AttributeKind::AccessAcl:
      return "system.posix_acl_access";
    case AttributeKind::DefaultAcl:
      return "system.posix_acl_default";
    case AttributeKind::Capability:
      break;
  }
  return "security.capability";
}

// The kernel clears the whole buffer that it is given, and most values are short: so a small buffer
// comes first.
std::optional<std::string> readAttribute(const PinnedEntry& entry, AttributeKind kind) {
  constexpr size_t kUsual = 512;
  const PinName pin(entry);
  std::string value(kUsual, '\0');
  ssize_t length = getxattr(pin.get(), attributeName(kind), value.data(), value.size());
  if (length < 0 && errno == ERANGE) {
    value.resize(XATTR_SIZE_MAX);
    length = getxattr(pin.get(), attributeName(kind), value.data(), value.size());
  }
  if (length < 0)
    return std::nullopt;
  value.resize(static_cast<size_t>(length));
  return value;
}

bool writeAttribute(const PinnedEntry& entry, AttributeKind kind, std::string_view value) {
  return setxattr(PinName(entry).get(), attributeName(kind), value.data(), value.size(), 0) == 0;
}

bool restoreCapability(const PinnedEntry& entry, std::string_view value) {
  const char* const name = attributeName(AttributeKind::Capability);
  EntryStatus now;
  if (!lookAt(entry.descriptor(), now))
    return false;
  if (now.modified != entry.status().modified)
    return true;
  if (!writeAttribute(entry, AttributeKind::Capability, value) || !lookAt(entry.descriptor(), now))
    return false;
  return now.modified == entry.status().modified || removexattr(PinName(entry).get(), name) == 0 ||
         errno == ENODATA;
}

bool hasAttribute(const char* name, bool follow, AttributeKind kind) {
  const auto get = follow ? getxattr : lgetxattr;
  const ssize_t length = get(name, attributeName(kind), nullptr, 0);
  if (length == 0)
    errno = ENODATA;
  return length > 0;
}

std::optional<AttributeSet> attributesOf(const char* name, bool follow) {
  const auto list = follow ? listxattr : llistxattr;
  std::array<char, 512> names = {};
  const ssize_t length = list(name, names.data(), names.size());
  if (length < 0 && (errno == ERANGE || errno == E2BIG))
    return AttributeSet{true, true, true};
  if (length < 0 && errno != EOPNOTSUPP)
    return std::nullopt;
  AttributeSet found;
  for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(strlen(names.data() + at)) + 1) {
    const std::string_view one = names.data() + at;
    found.accessAcl |= one == attributeName(AttributeKind::AccessAcl);
    found.defaultAcl |= one == attributeName(AttributeKind::DefaultAcl);
    found.capability |= one == attributeName(AttributeKind::Capability);
  }
  return found;
}

std::optional<AttributeSet> attributesOneByOne(const char* name, bool follow) {
  AttributeSet found;
  for (const auto& [kind, has] : {std::pair(AttributeKind::AccessAcl, &found.accessAcl),
                                  {AttributeKind::DefaultAcl, &found.defaultAcl},
                                  {AttributeKind::Capability, &found.capability}}) {
    *has = hasAttribute(name, follow, kind);
    if (!*has && errno != ENODATA && errno != EOPNOTSUPP)
      return std::nullopt;
  }
  return found;
}
