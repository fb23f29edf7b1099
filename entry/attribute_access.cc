#include "entry/attribute_access.h"

#include <linux/limits.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace {

// The name of a pin for calls that take no descriptor opened with O_PATH.
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

// The kernel clears as much room as it is offered, and most values are short.
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
  return get(name, attributeName(kind), nullptr, 0) > 0;
}
