#include "survey/tree/attributes.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cstring>

namespace {

std::array<char, XATTR_SIZE_MAX> room;  // for the largest value; no list of names is longer
static_assert(XATTR_LIST_MAX <= XATTR_SIZE_MAX);

std::string filled(ssize_t length) {
  return length > 0 ? std::string(room.data(), static_cast<size_t>(length)) : std::string();
}

}  // namespace

std::string attributeNames(const char* name, bool follow) {
  const auto list = follow ? listxattr : llistxattr;
  return filled(list(name, room.data(), room.size()));
}

bool hasAttribute(const std::string& names, const char* attribute) {
  for (size_t at = 0; at < names.size(); at += strlen(names.c_str() + at) + 1) {
    if (strcmp(names.c_str() + at, attribute) == 0)
      return true;
  }
  return false;
}

std::string readAttribute(const char* name, bool follow, const char* attribute) {
  const auto get = follow ? getxattr : lgetxattr;
  return filled(get(name, attribute, room.data(), room.size()));
}

std::string unchangeableFlags(const char* name, bool follow) {
  struct statx seen = {};
  const int flags = AT_NO_AUTOMOUNT | (follow ? 0 : AT_SYMLINK_NOFOLLOW);
  if (statx(AT_FDCWD, name, flags, STATX_TYPE, &seen) != 0)
    return {};
  std::string text = (seen.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 ? "immutable" : "";
  if ((seen.stx_attributes & STATX_ATTR_APPEND) != 0)
    text += text.empty() ? "append-only" : ", append-only";
  return text;
}
