#include "accountdb/file_attributes.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

namespace orvs {
namespace {

constexpr const char* kAccessList = "system.posix_acl_access";

bool isCopied(const std::string& name) {
  return name != "security.ima" && name != "security.evm";
}

// The names of the attributes; nothing on an error. A file system without attributes has an empty
// list.
std::optional<std::vector<std::string>> namesOf(int fd) {
  std::vector<std::string> names;
  const ssize_t size = ::flistxattr(fd, nullptr, 0);
  if (size == 0 || (size < 0 && errno == ENOTSUP))
    return names;
  std::string text(static_cast<std::size_t>(std::max<ssize_t>(size, 0)), '\0');
  const ssize_t length = size < 0 ? size : ::flistxattr(fd, text.data(), text.size());
  if (length < 0)
    return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  for (std::size_t at = 0; at < text.size(); at += names.back().size() + 1)
    names.emplace_back(text.c_str() + at);
  return names;
}

std::optional<std::string> valueOf(int fd, const std::string& name) {
  const ssize_t size = ::fgetxattr(fd, name.c_str(), nullptr, 0);
  if (size < 0)
    return std::nullopt;
  std::string value(static_cast<std::size_t>(size), '\0');
  const ssize_t length = ::fgetxattr(fd, name.c_str(), value.data(), value.size());
  if (length != size)
    return std::nullopt;
  return value;
}

bool copyOne(int from, int to, const std::string& name) {
  const std::optional<std::string> value = valueOf(from, name);
  if (!value)
    return false;
  return valueOf(to, name) == value ||
         ::fsetxattr(to, name.c_str(), value->data(), value->size(), 0) == 0;
}

bool removeAccessList(int fd) {
  return ::fremovexattr(fd, kAccessList) == 0 || errno == ENODATA || errno == ENOTSUP;
}

}  // namespace

bool copyAttributes(int from, int to) {
  const std::optional<std::vector<std::string>> names = namesOf(from);
  if (!names)
    return false;
  if (std::ranges::find(*names, kAccessList) == names->end() && !removeAccessList(to))
    return false;
  return std::ranges::all_of(*names, [from, to](const std::string& name) {
    return !isCopied(name) || copyOne(from, to, name);
  });
}

}  // namespace orvs
