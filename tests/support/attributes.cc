#include "tests/support/attributes.h"

#include <sys/xattr.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include "tests/support/sandbox.h"

namespace {

struct Entry {
  uint16_t tag = 0;
  uint16_t permissions = 0;
  uint32_t id = UINT32_MAX;
};

constexpr uint16_t kUser = 2;
constexpr uint16_t kGroup = 8;

void set(const std::string& path, const char* attribute, const std::string& value) {
  requireSandbox();
  if (lsetxattr(path.c_str(), attribute, value.data(), value.size(), 0) == 0)
    return;
  perror((path + " " + attribute).c_str());
  abort();
}

uint16_t permissionsOf(const std::string& text) {
  uint16_t bits = 0;
  for (const char letter : text)
    bits |= letter == 'r' ? 4 : letter == 'w' ? 2 : 1;
  return bits;
}

}  // namespace

void setAcl(const std::string& path, const std::string& named, const char* attribute) {
  std::vector<Entry> users = {{1, 6}}, groups = {{4, 4}};
  std::istringstream words(named);
  for (std::string word; words >> word;) {
    const size_t colon = word.rfind(':');
    const Entry entry = {word.front() == 'u' ? kUser : kGroup,
                         permissionsOf(word.substr(colon + 1)),
                         static_cast<uint32_t>(std::stoul(word.substr(2)))};
    (word.front() == 'u' ? users : groups).push_back(entry);
  }
  groups.push_back({16, 7});
  groups.push_back({32, 0});
  std::string value("\2\0\0\0", 4);
  for (const auto* list : {&users, &groups}) {
    for (const Entry& entry : *list)
      value.append(reinterpret_cast<const char*>(&entry), sizeof entry);
  }
  set(path, attribute, value);
}

std::string aclOf(const std::string& path, const char* attribute) {
  static std::array<char, 65536> value;
  const ssize_t length = lgetxattr(path.c_str(), attribute, value.data(), value.size());
  std::string text;
  for (ssize_t at = 4; at + 8 <= length; at += 8) {
    Entry entry;
    memcpy(&entry, value.data() + at, sizeof entry);
    if (entry.tag != kUser && entry.tag != kGroup)
      continue;
    text += (text.empty() ? "" : " ") + std::string(entry.tag == kUser ? "u:" : "g:") +
            std::to_string(entry.id) + ":";
    for (const auto& [bit, letter] : {std::pair(4, 'r'), {2, 'w'}, {1, 'x'}})
      text += (entry.permissions & bit) != 0 ? std::string(1, letter) : "";
  }
  return text;
}

void setCapability(const std::string& path, int version, uint32_t root) {
  std::string value(20, '\0');
  value[0] = 1;  // effective
  value[3] = static_cast<char>(version);
  value[5] = 4;  // permitted: to bind low ports
  if (version == 3)
    value.append(reinterpret_cast<const char*>(&root), sizeof root);
  set(path, "security.capability", value);
}
